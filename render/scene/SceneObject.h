#pragma once
// TezSceneObject: a node of a scene's tree, and the base of every drawable
// kind. A plain node (Create) draws nothing; kinds override GetObjectBounds,
// DrawObject, IndexObject, BuildObject, UnbuildObject and the reset hooks.
//
// Each object names the effect type that draws it; the scene keeps, beside
// the tree, one flat list of objects per effect and draws effect by effect.
// Properties (Property) are bits that SetProperty passes down to every child
// that inherits it (all do, until SetInheritProperty(p, false) stops the
// descent along that branch); a value outside 0..8 throws std::out_of_range
// "invalid bitset<N> position".
//
// Draw is the template of every draw: it skips what the pass excludes
// (invisible; not mappable in a mapping pass; not transparent in a
// transparent pass; not overlay in an overlay pass), hands world matrix and
// colour (the id colour when mapping, the selected colour when selected) to
// the effect, rebuilds the object when NeedsBuild is set, then draws. GL is
// touched only in Draw, BuildObject, UnbuildObject and the reset hooks, with
// the context current; UnbuildObject must tolerate a second call.
//
// The tree is changed through TezScene (AddChild, RemoveChild), which keeps
// the effect lists and sends the scene events. Parent and scene are plain
// back pointers; children are owned.

#include "core/SelectableObject.h"
#include "math/Box.h"
#include "math/Matrix.h"
#include "math/Vector.h"

#include <bitset>
#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezSceneObject)
TEZ_DECLARE_REF_FUNCTIONS(TezScene)

class TezDocumentObject;
class TezSceneDrawData;

class TEZ_API TezSceneObject : public TezSelectableObject
{
    TEZ_TYPIFIED_CLASS(TezSceneObject)
public:
    enum Property {
        Visible = 0,
        Reserved1 = 1,
        Transparent = 2,
        Reserved3 = 3,
        Mappable = 4,
        SceneRoot = 5,
        NoBounds = 6,
        NeedsBuild = 7,
        Overlay = 8,
        PropertyCount = 9
    };

    // A plain node drawn by the default effect.
    static TezRef<TezSceneObject> Create();
    ~TezSceneObject() override;

    virtual void SetProperty(Property property, bool value);
    virtual bool GetProperty(Property property) const;
    virtual void SetInheritProperty(Property property, bool inherit);
    virtual void SetInheritAllProperties(bool inherit);
    virtual bool GetInheritProperty(Property property) const;
    virtual void SetColor(TezVector4<float> const& color) { m_color = color; }
    virtual TezVector4<float> GetColor() const { return m_color; }
    // Brighter (value x 1.3 while the hue is below 0.9, else saturation
    // halved), else the complement, else the selection red (0.92, 0, 0, 1).
    virtual TezVector4<float> GetSelectedColor();
    virtual bool GetSelectAsBrighter() const { return m_selectAsBrighter; }
    virtual void SetSelectAsBrighter(bool on) { m_selectAsBrighter = on; }
    virtual bool GetSelectAsComplement() const { return m_selectAsComplement; }
    virtual void SetSelectAsComplement(bool on) { m_selectAsComplement = on; }
    // Own box (when visible and, unless includeAll, not NoBounds) and the
    // children's boxes, in the parent's frame. Invisible objects still
    // count their children.
    virtual TezBox3<float> GetBounds(bool includeAll);
    // The object's own box in its frame; empty for a plain node.
    virtual TezBox3<float> GetObjectBounds();
    virtual TezBox3<float> GetChildrenBounds(bool includeAll);
    virtual bool Draw(TezSceneDrawData const& data);
    virtual TezMatrix44<float> GetTransform() const { return m_transform; }
    virtual void SetTransform(TezMatrix44<float> const& transform) { m_transform = transform; }
    // The parent's world matrix times the transform.
    virtual TezMatrix44<float> GetWorldMatrix();
    virtual TezRef<TezScene> GetScene();
    virtual TezRef<TezSceneObject> GetParent();
    virtual int GetNumChildren() const { return static_cast<int>(m_children.size()); }
    // Null for an index out of range.
    virtual TezRef<TezSceneObject> GetChild(int index);
    // Draw on every child; true in all cases.
    virtual bool DrawChildren(TezSceneDrawData const& data);
    virtual bool DrawObject(TezSceneDrawData const& data) { return true; }
    virtual bool IndexObject(TezSceneDrawData const& data) { return true; }
    virtual bool BuildObject() { return true; }
    virtual bool UnbuildObject() { return true; }
    // Children first, then the object; PostReset the other way round.
    virtual bool PreReset();
    virtual bool PostReset();
    virtual bool PreResetObject() { return true; }
    virtual bool PostResetObject() { return true; }
    virtual bool PreResetChildren();
    virtual bool PostResetChildren();

    TezDocumentObject* GetDocumentObject() const { return m_documentObject; }
    void SetDocumentObject(TezDocumentObject* object) { m_documentObject = object; }
    uint32_t GetEffectType() const { return m_effectType; }
    void SetEffectType(uint32_t type) { m_effectType = type; }

protected:
    // A node drawn by the effect of the given type id.
    explicit TezSceneObject(uint32_t effectType);
    TezSceneObject();
    // Appends the child and sets its parent; nothing else (no scene, no lists).
    void AddChild(TezRef<TezSceneObject> child);

private:
    friend class TezScene;
    // Sets the scene pointer down the whole branch.
    void SetScene(TezScene* scene);
    static size_t CheckedIndex(Property property);

    TezMatrix44<float> m_transform;
    TezSceneObject* m_parent = nullptr;
    TezScene* m_scene = nullptr;
    std::vector<TezRef<TezSceneObject>> m_children;
    std::bitset<PropertyCount> m_properties;
    std::bitset<PropertyCount> m_inheritOff;
    TezVector4<float> m_color;
    bool m_selectAsBrighter = false;
    bool m_selectAsComplement = false;
    uint32_t m_effectType;
    TezDocumentObject* m_documentObject = nullptr;
};
