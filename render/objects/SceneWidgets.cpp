#include "render/objects/SceneWidgets.h"

#include "math/Constants.h"
#include "mesh/IndexedMesh.h"
#include "render/CameraView.h"
#include "render/objects/SceneText.h"
#include "render/scene/SceneDrawData.h"
#include "volume/Color.h"

#include <cmath>
#include <stdexcept>
#include <string>

TEZ_DEFINE_REF_FUNCTIONS(TezSceneArrow)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneRing)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneMoveWidget)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneRotateWidget)
TEZ_TYPIFIED_IMPL(TezSceneArrow, "Arrow")
TEZ_TYPIFIED_IMPL(TezSceneRing, "Ring")
TEZ_TYPIFIED_IMPL(TezSceneMoveWidget, "Move Widget")
TEZ_TYPIFIED_IMPL(TezSceneRotateWidget, "Rotate Widget")

namespace {

constexpr int kSlices = 24;

void CheckAxis(int axis, char const* operation)
{
    if (axis < 0 || axis > 2)
        throw std::runtime_error(std::string(operation) + ": axis " + std::to_string(axis) + " is not 0, 1 or 2");
}

// Turns the generators' +z onto the axis.
TezMatrix44<float> FromZTo(int axis)
{
    if (axis == 0)
        return TezRotationAboutY(TezPif * 0.5f);
    if (axis == 1)
        return TezRotationAboutX(-TezPif * 0.5f);
    return TezIdentityTransform<float>();
}

TezMatrix44<float> UprightAt(TezSceneObject* parent, TezMatrix44<float> const& own)
{
    if (!parent)
        return own;
    TezVector4<float> const p = parent->GetWorldMatrix()[3];
    return TezTranslationTransform(TezVector3<float>(p.x, p.y, p.z)) * own;
}

} // namespace

TezVector4<float> TezWidgetAxisColor(int axis, bool highlighted)
{
    CheckAxis(axis, "TezWidgetAxisColor");
    float const hue[3] = {0.0f, 0.33f, 0.66f};
    return TezColor::HsvToRgb(highlighted ? TezVector4<float>(hue[axis], 0.6f, 1.0f, 0.8f)
                                          : TezVector4<float>(hue[axis], 0.9f, 0.8f, 0.5f));
}

// ---- parts ----

TezSceneArrow::TezSceneArrow() = default;

TezRef<TezSceneArrow> TezSceneArrow::Create(int axis)
{
    CheckAxis(axis, "TezSceneArrow::Create");
    TezRef<TezSceneArrow> arrow(new TezSceneArrow());
    arrow->m_axis = axis;
    arrow->SetMesh(TezIndexedMesh::CreateArrow(kSlices, 0.75f, 0.25f, 0.035f, 0.09f));
    arrow->SetTransform(FromZTo(axis));
    arrow->SetColor(TezWidgetAxisColor(axis, false));
    arrow->SetProperty(Mappable, true);
    return arrow;
}

TezSceneRing::TezSceneRing() = default;

TezRef<TezSceneRing> TezSceneRing::Create(RingType type, int axis)
{
    CheckAxis(axis, "TezSceneRing::Create");
    TezRef<TezSceneRing> ring(new TezSceneRing());
    ring->m_ringType = type;
    ring->m_axis = axis;
    ring->SetMesh(type == Flat ? TezIndexedMesh::CreateFlatRing(2 * kSlices, 1.04f, 0.96f, 0.02f)
                               : TezIndexedMesh::CreateTorus(12, 3 * kSlices, 1.0f, 0.04f));
    ring->SetTransform(FromZTo(axis));
    ring->SetColor(TezWidgetAxisColor(axis, false));
    ring->SetProperty(Mappable, true);
    return ring;
}

// ---- move widget ----

TezSceneMoveWidget::TezSceneMoveWidget() = default;

TezRef<TezSceneMoveWidget> TezSceneMoveWidget::Create() { return Create(true, true, true, 16); }

TezRef<TezSceneMoveWidget> TezSceneMoveWidget::Create(bool x, bool y, bool z, int labelSize)
{
    TezRef<TezSceneMoveWidget> widget(new TezSceneMoveWidget());
    bool const shown[3] = {x, y, z};
    char const* const names[3] = {"X", "Y", "Z"};
    std::string const font = "bitmap,DejaVu Sans," + std::to_string(labelSize > 0 ? labelSize : 16);
    for (int i = 0; i < 3; ++i) {
        widget->m_arrows[i] = TezSceneArrow::Create(i);
        widget->m_arrows[i]->SetProperty(Visible, shown[i]);
        TezVector3<float> tip(0, 0, 0);
        tip[i] = 1.15f;
        widget->m_labels[i] = TezSceneText::Create(TezString(names[i]), tip);
        widget->m_labels[i]->GetText3d().SetDefFont(TezString(font.c_str()));
        widget->m_labels[i]->GetText3d().SetTextPosition(TezText3d::TextMiddle);
        widget->m_labels[i]->SetColor(TezWidgetAxisColor(i, true));
        widget->m_labels[i]->SetProperty(Visible, shown[i]);
    }
    widget->SetProperty(Visible, true);
    return widget;
}

TezRef<TezSceneArrow> TezSceneMoveWidget::GetArrow(int index) const
{
    return index >= 0 && index < 3 ? m_arrows[index] : nullptr;
}

TezRef<TezSceneText> TezSceneMoveWidget::GetLabel(int index) const
{
    return index >= 0 && index < 3 ? m_labels[index] : nullptr;
}

TezMatrix44<float> TezSceneMoveWidget::GetWorldMatrix() { return UprightAt(GetParent().Get(), GetTransform()); }

bool TezSceneMoveWidget::DrawObject(TezSceneDrawData const& data)
{
    // The labels read forwards from wherever the camera looks; the second
    // one faces the other way round its axis.
    if (TezRef<TezCameraView> camera = data.GetCamera()) {
        TezVector3<float> const sight = camera->GetFocus() - camera->GetEye();
        float const angle = std::atan2(sight.x, -sight.z);
        for (int i = 0; i < 3; ++i)
            m_labels[i]->GetText3d().SetFlipAngle((angle + (i == 1 ? TezPif : 0.0f)) * 180.0f / TezPif);
    }
    return TezSceneObject::DrawObject(data);
}

// ---- rotate widget ----

TezSceneRotateWidget::TezSceneRotateWidget() = default;

TezRef<TezSceneRotateWidget> TezSceneRotateWidget::Create()
{
    TezRef<TezSceneRotateWidget> widget(new TezSceneRotateWidget());
    for (int i = 0; i < 3; ++i)
        widget->m_rings[i] = TezSceneRing::Create(TezSceneRing::Torus, i);
    widget->SetProperty(Visible, true);
    return widget;
}

TezRef<TezSceneRing> TezSceneRotateWidget::GetRing(int index) const
{
    return index >= 0 && index < 3 ? m_rings[index] : nullptr;
}

TezMatrix44<float> TezSceneRotateWidget::GetWorldMatrix() { return UprightAt(GetParent().Get(), GetTransform()); }
