#include "render/scene/SceneObject.h"

#include "math/IdColor.h"
#include "render/effects/DefaultEffects.h"
#include "render/effects/Effect.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"
#include "volume/Color.h"

#include <GL/glew.h>

#include <algorithm>
#include <stdexcept>

TEZ_DEFINE_REF_FUNCTIONS(TezSceneObject)
TEZ_TYPIFIED_IMPL(TezSceneObject, "Generic Object")

TezSceneObject::TezSceneObject(uint32_t effectType)
    : m_transform(TezIdentityTransform<float>()), m_color(4.0f / 255.0f, 25.0f / 255.0f, 186.0f / 255.0f, 1.0f),
      m_effectType(effectType)
{
    m_properties.set(Visible);
    m_properties.set(NeedsBuild);
}

TezSceneObject::TezSceneObject() : TezSceneObject(TezDefaultEffect::StaticType()) {}

TezSceneObject::~TezSceneObject()
{
    // A counted child cannot die while its parent holds it, so only a root
    // whose scene forgot to let go can get here; it just drops its links.
    for (TezRef<TezSceneObject> const& child : m_children)
        if (child->m_parent == this)
            child->m_parent = nullptr;
    m_scene = nullptr;
}

TezRef<TezSceneObject> TezSceneObject::Create() { return TezRef<TezSceneObject>(new TezSceneObject()); }

size_t TezSceneObject::CheckedIndex(Property property)
{
    int const index = static_cast<int>(property);
    if (index < 0 || index >= PropertyCount)
        throw std::out_of_range("invalid bitset<N> position");
    return static_cast<size_t>(index);
}

void TezSceneObject::SetProperty(Property property, bool value)
{
    m_properties.set(CheckedIndex(property), value);
    for (TezRef<TezSceneObject> const& child : m_children)
        if (child->GetInheritProperty(property))
            child->SetProperty(property, value);
}

bool TezSceneObject::GetProperty(Property property) const { return m_properties.test(CheckedIndex(property)); }

void TezSceneObject::SetInheritProperty(Property property, bool inherit)
{
    m_inheritOff.set(CheckedIndex(property), !inherit);
}

void TezSceneObject::SetInheritAllProperties(bool inherit)
{
    if (inherit)
        m_inheritOff.reset();
    else
        m_inheritOff.set();
}

bool TezSceneObject::GetInheritProperty(Property property) const { return !m_inheritOff.test(CheckedIndex(property)); }

TezVector4<float> TezSceneObject::GetSelectedColor()
{
    TezVector4<float> hsv = TezColor::RgbToHsv(GetColor());
    if (m_selectAsBrighter) {
        // The test is on the hue, not on the value: that is the rule.
        if (hsv.x < 0.9f) {
            hsv.z = std::min(hsv.z * 1.3f, 1.0f);
            return TezColor::HsvToRgb(hsv);
        }
        if (hsv.y > 0.05f) {
            hsv.y = std::max(hsv.y * 0.5f, 0.01f);
            return TezColor::HsvToRgb(hsv);
        }
    }
    if (m_selectAsComplement) {
        hsv.x = hsv.x > 0.5f ? hsv.x - 0.5f : hsv.x + 0.5f;
        return TezColor::HsvToRgb(hsv);
    }
    return TezVector4<float>(0.92f, 0.0f, 0.0f, 1.0f);
}

TezBox3<float> TezSceneObject::GetBounds(bool includeAll)
{
    TezBox3<float> box;
    if (GetProperty(Visible) && (includeAll || !GetProperty(NoBounds)))
        box += GetObjectBounds();
    box += GetChildrenBounds(includeAll);
    if (box.Empty())
        return box;
    return GetTransform() * box;
}

TezBox3<float> TezSceneObject::GetObjectBounds() { return TezBox3<float>(); }

TezBox3<float> TezSceneObject::GetChildrenBounds(bool includeAll)
{
    TezBox3<float> box;
    for (TezRef<TezSceneObject> const& child : m_children)
        box += child->GetBounds(includeAll);
    return box;
}

TezMatrix44<float> TezSceneObject::GetWorldMatrix()
{
    return m_parent ? m_parent->GetWorldMatrix() * m_transform : m_transform;
}

TezRef<TezScene> TezSceneObject::GetScene() { return TezRef<TezScene>(m_scene); }

TezRef<TezSceneObject> TezSceneObject::GetParent() { return TezRef<TezSceneObject>(m_parent); }

TezRef<TezSceneObject> TezSceneObject::GetChild(int index)
{
    if (index < 0 || static_cast<size_t>(index) >= m_children.size())
        return nullptr;
    return m_children[static_cast<size_t>(index)];
}

bool TezSceneObject::Draw(TezSceneDrawData const& data)
{
    if (!GetProperty(Visible))
        return true;
    if (data.IsMapping() && !GetProperty(Mappable))
        return true;
    if (data.IsTransparent() && !GetProperty(Transparent))
        return true;
    if (data.IsOverlay() && !GetProperty(Overlay))
        return true;
    glGetError();
    TezRef<TezEffect> effect = data.GetEffect();
    if (effect) {
        effect->SetWorldMatrix(GetWorldMatrix());
        TezVector4<float> color = GetColor();
        if (IsSelected())
            color = GetSelectedColor();
        if (data.IsMapping())
            color = TezIdToColor(Id());
        effect->SetObjectColor(color);
        effect->Apply(data);
    }
    if (GetProperty(NeedsBuild)) {
        UnbuildObject();
        BuildObject();
        // Straight to the bit: the children keep their own flags.
        m_properties.reset(NeedsBuild);
    }
    bool const result = data.IsIndexing() ? IndexObject(data) : DrawObject(data);
    glGetError();
    return result;
}

bool TezSceneObject::DrawChildren(TezSceneDrawData const& data)
{
    for (size_t i = 0; i < m_children.size(); ++i)
        m_children[i]->Draw(data);
    return true;
}

bool TezSceneObject::PreReset()
{
    bool const children = PreResetChildren();
    bool const object = PreResetObject();
    return children && object;
}

bool TezSceneObject::PostReset()
{
    bool const object = PostResetObject();
    bool const children = PostResetChildren();
    return object && children;
}

bool TezSceneObject::PreResetChildren()
{
    for (TezRef<TezSceneObject> const& child : m_children)
        child->PreReset();
    return true;
}

bool TezSceneObject::PostResetChildren()
{
    for (TezRef<TezSceneObject> const& child : m_children)
        child->PostReset();
    return true;
}

void TezSceneObject::AddChild(TezRef<TezSceneObject> child)
{
    if (!child)
        return;
    m_children.push_back(child);
    child->m_parent = this;
}

void TezSceneObject::SetScene(TezScene* scene)
{
    m_scene = scene;
    for (TezRef<TezSceneObject> const& child : m_children)
        child->SetScene(scene);
}
