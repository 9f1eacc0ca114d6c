#include "render/scene/Scene.h"

#include "core/Events.h"
#include "render/effects/DefaultEffects.h"
#include "render/scene/Light.h"
#include "render/scene/SceneDrawData.h"
#include "render/scene/SceneObject.h"

#include <algorithm>

TEZ_DEFINE_REF_FUNCTIONS(TezScene)

TEZ_SUBJECT_EVENT_IMPL(TezEventSceneChanged, "Scene Changed Event", TezScene, m_scene)
TEZ_SUBJECT_EVENT_IMPL(TezEventSceneChanging, "Scene Changing Event", TezScene, m_scene)
TEZ_DEFINE_REF_FUNCTIONS(TezBackgroundEffect)

TezScene::TezScene()
{
    m_root = TezSceneObject::Create();
    m_root->SetProperty(TezSceneObject::SceneRoot, true);
    m_root->SetScene(this);
    m_backgroundEffect = TezBackgroundEffect::Create();
    m_effects.push_back(m_backgroundEffect);
    m_effectObjects.emplace_back();
    m_defaultEffect = TezDefaultEffect::Create();
    m_effects.push_back(m_defaultEffect);
    m_effectObjects.emplace_back();
    m_light = TezLight::Create();
}

TezScene::~TezScene()
{
    ++m_eventGuard;
    m_effects.clear();
    m_effectObjects.clear();
    RemoveAllChildren(m_root);
    m_root->SetScene(nullptr);
    m_root = nullptr;
    m_defaultEffect = nullptr;
    m_light = nullptr;
    --m_eventGuard;
}

TezRef<TezScene> TezScene::Create() { return TezRef<TezScene>(new TezScene()); }

void TezScene::ReportChanging()
{
    if (m_eventGuard != 0)
        return;
    TezRef<TezEventManager> events = TezEventManager::GetAppEventManager();
    if (events)
        events->Report(TezEventSceneChanging::Create(this));
}

void TezScene::ReportChanged()
{
    if (m_eventGuard != 0)
        return;
    TezRef<TezEventManager> events = TezEventManager::GetAppEventManager();
    if (events)
        events->Report(TezEventSceneChanged::Create(this));
}

TezBox3<float> TezScene::GetBounds(bool includeAll)
{
    TezBox3<float> box = m_root->GetBounds(includeAll);
    box += m_minBounds;
    return box;
}

TezRef<TezEffect> TezScene::GetDefaultEffect() { return m_defaultEffect; }
TezRef<TezBackgroundEffect> TezScene::GetBackgroundEffect() { return m_backgroundEffect; }
TezRef<TezSceneObject> TezScene::GetRoot() { return m_root; }
TezRef<TezLight> TezScene::GetLight() { return m_light; }

int TezScene::FindEffect(uint32_t type) const
{
    for (size_t i = 0; i < m_effects.size(); ++i)
        if (m_effects[i]->Type() == type)
            return static_cast<int>(i);
    return -1;
}

TezRef<TezEffect> TezScene::GetEffect(unsigned long type)
{
    int const index = FindEffect(static_cast<uint32_t>(type));
    return index < 0 ? nullptr : m_effects[static_cast<size_t>(index)];
}

TezRef<TezEffect> TezScene::GetEffectAt(size_t index) const
{
    return index < m_effects.size() ? m_effects[index] : nullptr;
}

std::vector<TezRef<TezSceneObject>> TezScene::GetEffectObjects(size_t index) const
{
    return index < m_effectObjects.size() ? m_effectObjects[index] : std::vector<TezRef<TezSceneObject>>();
}

bool TezScene::Draw(TezSceneDrawData& data)
{
    Unbuild();
    if (!data.GetLight())
        data.SetLight(m_light);
    for (bool phase : {false, true}) {
        // Sizes are read anew on every round: drawing may add effects.
        for (size_t i = 0; i < m_effects.size(); ++i) {
            TezRef<TezEffect> effect = m_effects[i];
            if (effect->OnTop() != phase)
                continue;
            data.SetEffect(effect);
            unsigned const passes = effect->GetNumPasses();
            if (effect->RenderPerPass()) {
                for (unsigned pass = 0; pass < passes; ++pass) {
                    data.SetEffectPass(pass);
                    effect->StartEffect(data, pass);
                    for (size_t k = 0; i < m_effectObjects.size() && k < m_effectObjects[i].size(); ++k) {
                        TezRef<TezSceneObject> object = m_effectObjects[i][k];
                        object->Draw(data);
                    }
                    effect->EndEffect(data, pass);
                }
            } else {
                for (size_t k = 0; i < m_effectObjects.size() && k < m_effectObjects[i].size(); ++k) {
                    TezRef<TezSceneObject> object = m_effectObjects[i][k];
                    for (unsigned pass = 0; pass < passes; ++pass) {
                        data.SetEffectPass(pass);
                        effect->StartEffect(data, pass);
                        object->Draw(data);
                        effect->EndEffect(data, pass);
                    }
                }
            }
            data.SetEffect(nullptr);
        }
    }
    return true;
}

void TezScene::Unbuild()
{
    std::vector<TezRef<TezSceneObject>> waiting;
    waiting.swap(m_unbuildList);
    for (TezRef<TezSceneObject> const& object : waiting)
        object->UnbuildObject();
}

void TezScene::AddChild(TezRef<TezSceneObject> parent, TezRef<TezSceneObject> child)
{
    if (!parent || !child)
        return;
    ReportChanging();
    if (child->m_parent)
        RemoveChild(child);
    parent->AddChild(child);
    AddChildInternal(child.Get());
    TezSceneObject* top = parent.Get();
    while (top->m_parent)
        top = top->m_parent;
    // A branch not yet hung from the root enters no list; the AddChild that
    // completes the chain brings it in.
    if (top == m_root.Get())
        AddToEffectObjects(child);
    ReportChanged();
}

void TezScene::AddChildInternal(TezSceneObject* object)
{
    object->SetScene(this);
    object->SetProperty(TezSceneObject::NeedsBuild, true);
    for (TezRef<TezSceneObject> const& child : object->m_children)
        AddChildInternal(child.Get());
}

void TezScene::AddToEffectObjects(TezRef<TezSceneObject> object)
{
    int index = FindEffect(object->GetEffectType());
    if (index < 0) {
        TezRef<TezEffect> effect(TezCreateObjectFromType(object->GetEffectType()));
        if (effect) {
            m_effects.push_back(effect);
            m_effectObjects.emplace_back();
            index = static_cast<int>(m_effects.size()) - 1;
        }
    }
    // An effect type the registry cannot make: the object is left out of
    // drawing, its children are not.
    if (index >= 0)
        m_effectObjects[static_cast<size_t>(index)].push_back(object);
    for (TezRef<TezSceneObject> const& child : object->m_children)
        AddToEffectObjects(child);
}

void TezScene::RemoveChild(TezRef<TezSceneObject> child)
{
    if (!child || !child->m_parent)
        return;
    ReportChanging();
    TezSceneObject* parent = child->m_parent;
    child->m_parent = nullptr;
    auto& siblings = parent->m_children;
    auto found = std::find(siblings.begin(), siblings.end(), child);
    if (found != siblings.end())
        siblings.erase(found);
    RemoveFromEffectObjects(child);
    RemoveChildInternal(child);
    ReportChanged();
}

void TezScene::RemoveFromEffectObjects(TezRef<TezSceneObject> object)
{
    int const index = FindEffect(object->GetEffectType());
    if (index < 0)
        return;
    auto& list = m_effectObjects[static_cast<size_t>(index)];
    auto found = std::find(list.begin(), list.end(), object);
    if (found == list.end())
        return;
    list.erase(found);
    // An effect without objects goes; a later user creates it anew, the
    // constructor's two included.
    if (list.empty()) {
        m_effectObjects.erase(m_effectObjects.begin() + index);
        m_effects.erase(m_effects.begin() + index);
    }
    for (TezRef<TezSceneObject> const& child : object->m_children)
        RemoveFromEffectObjects(child);
}

void TezScene::RemoveChildInternal(TezRef<TezSceneObject> object)
{
    m_unbuildList.push_back(object);
    object->m_scene = nullptr;
    object->m_parent = nullptr;
    for (TezRef<TezSceneObject> const& child : object->m_children)
        RemoveChildInternal(child);
    object->m_children.clear();
}

void TezScene::RemoveAllChildren(TezRef<TezSceneObject> parent)
{
    if (!parent || parent->m_children.empty())
        return;
    ReportChanging();
    std::vector<TezRef<TezSceneObject>> children = parent->m_children;
    for (TezRef<TezSceneObject> const& child : children) {
        m_unbuildList.push_back(child);
        child->m_parent = nullptr;
        child->m_scene = nullptr;
        RemoveFromEffectObjects(child);
        RemoveChildInternal(child);
    }
    parent->m_children.clear();
    ReportChanged();
}

bool TezScene::PreReset()
{
    bool result = m_root->PreReset();
    for (TezRef<TezEffect> const& effect : m_effects)
        result = effect->PreReset() && result;
    return result;
}

bool TezScene::PostReset()
{
    bool result = true;
    for (TezRef<TezEffect> const& effect : m_effects)
        result = effect->PostReset() && result;
    result = m_root->PostReset() && result;
    return result;
}
