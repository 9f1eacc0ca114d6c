#pragma once
// TezScene: a tree of scene objects under one root and, beside the tree, one
// flat list of objects per effect. Drawing walks the effects, not the tree:
// each effect's program is bound once per pass for all its objects (or per
// object, where the effect draws object-major), in two phases, the OnTop
// effects last.
//
// The constructor makes the root (a plain node with SceneRoot on), the
// background effect (effects[0]) and the default effect (effects[1]), both
// with empty lists, then the light. An object enters the list of its effect
// when the AddChild that hangs its branch from the root runs, children with
// it; an effect type not yet in use is created through the type registry
// (a type id that is no effect adds nothing). Removing the last object of an
// effect removes the effect. Removed branches are dismantled and wait in the
// unbuild list until the next Draw (or Unbuild) releases their GL resources
// with the context current; an object may be unbuilt twice. Moving an
// object (AddChild of one that has a parent) removes it first, which drops
// its own children: move leaves, or rebuild the branch.
//
// AddChild, RemoveChild and RemoveAllChildren send TezEventSceneChanging and
// TezEventSceneChanged (carrying this scene) through the application's event
// manager, except while the scene is being destroyed. No lock guards a
// scene: change it on the host's thread while nothing paints it. Draw and
// the reset calls need the context current.

#include "core/RefCounter.h"
#include "core/SubjectEvent.h"
#include "math/Box.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezScene)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneObject)
TEZ_DECLARE_REF_FUNCTIONS(TezEffect)

TEZ_SUBJECT_EVENT(TezEventSceneChanging, TezScene, GetScene, m_scene)
TEZ_SUBJECT_EVENT(TezEventSceneChanged, TezScene, GetScene, m_scene)
TEZ_DECLARE_REF_FUNCTIONS(TezBackgroundEffect)
TEZ_DECLARE_REF_FUNCTIONS(TezLight)

class TezSceneDrawData;

class TEZ_API TezScene : public TezRefCounter
{
public:
    static TezRef<TezScene> Create();
    // The active document's main and auxiliary scenes; null without an
    // active document or without a render context.
    static TezRef<TezScene> GetActiveScene();
    static TezRef<TezScene> GetAuxiliaryScene();
    ~TezScene() override;

    // The root's bounds united with the floor set by SetMinBounds.
    virtual TezBox3<float> GetBounds(bool includeAll);
    virtual void SetMinBounds(TezBox3<float> const& box) { m_minBounds = box; }
    // Unbuild, then every effect's objects, pass by pass; always true. Sets
    // the scene's light on data when it has none.
    virtual bool Draw(TezSceneDrawData& data);
    virtual TezRef<TezEffect> GetDefaultEffect();
    virtual TezRef<TezBackgroundEffect> GetBackgroundEffect();
    // The scene's instance of an effect type; null when none is in use.
    virtual TezRef<TezEffect> GetEffect(unsigned long type);
    virtual TezRef<TezSceneObject> GetRoot();
    // Null parent or child: nothing. A child with a parent is moved.
    virtual void AddChild(TezRef<TezSceneObject> parent, TezRef<TezSceneObject> child);
    virtual void RemoveChild(TezRef<TezSceneObject> child);
    virtual void RemoveAllChildren(TezRef<TezSceneObject> parent);
    // Objects, then effects, release their GL resources; PostReset rebuilds
    // in the mirrored order. Results are joined by AND.
    virtual bool PreReset();
    virtual bool PostReset();
    virtual TezRef<TezLight> GetLight();

    // UnbuildObject on every object waiting for it, then forgets them.
    void Unbuild();

    // What the scene holds, for hosts and tests.
    size_t GetNumEffects() const { return m_effects.size(); }
    TezRef<TezEffect> GetEffectAt(size_t index) const;
    // The objects drawn by effect `index`; empty for an index out of range.
    std::vector<TezRef<TezSceneObject>> GetEffectObjects(size_t index) const;
    size_t GetUnbuildCount() const { return m_unbuildList.size(); }

private:
    TezScene();
    void ReportChanging();
    void ReportChanged();
    int FindEffect(uint32_t type) const;
    void AddChildInternal(TezSceneObject* object);
    void AddToEffectObjects(TezRef<TezSceneObject> object);
    void RemoveFromEffectObjects(TezRef<TezSceneObject> object);
    void RemoveChildInternal(TezRef<TezSceneObject> object);

    std::vector<TezRef<TezEffect>> m_effects;
    std::vector<std::vector<TezRef<TezSceneObject>>> m_effectObjects;
    TezRef<TezEffect> m_defaultEffect;
    TezRef<TezBackgroundEffect> m_backgroundEffect;
    TezRef<TezSceneObject> m_root;
    TezBox3<float> m_minBounds;
    TezRef<TezLight> m_light;
    std::vector<TezRef<TezSceneObject>> m_unbuildList;
    int32_t m_eventGuard = 0;
};
