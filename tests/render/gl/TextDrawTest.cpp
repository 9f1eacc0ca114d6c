#include "tests/render/gl/GLTestContext.h"

#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/objects/ScenePrimitives.h"
#include "render/objects/SceneText.h"
#include "render/scene/Scene.h"
#include "render/text/QuickFont.h"
#include "render/views/RenderView.h"

#include <GL/glew.h>

#include <cmath>
#include <vector>

namespace {

class TextDrawTest : public GLTest
{
protected:
    void Open(int width, int height)
    {
        w = width;
        h = height;
        view = TezRenderViewManager::GetAppRenderViewManager()->CreateOffScreenCuda(w, h);
        ASSERT_TRUE(view);
        view->SetBackgroundColor({0, 0, 0, 1});
        TezRef<TezCameraView> camera = view->GetCamera();
        camera->UsePerspective(true);
        camera->SetEye({0, 0, 10});
        camera->SetFocus({0, 0, 0});
        camera->SetUp({0, 1, 0});
        camera->SetFov(30.0f);
        camera->SetNear(1.0f);
        camera->SetFar(40.0f);
        view->ActivateContext();
        view->SetScene(TezScene::Create());
        view->DeactivateContext();
    }

    void TearDown() override
    {
        if (view) {
            view->ActivateContext();
            view->SetScene(nullptr);
            view->DeactivateContext();
        }
        view = nullptr;
        GLTest::TearDown();
    }

    // Box of the pixels brighter than `level`, in GL's pixel rows (y up).
    TezBox2<float> LitBox(int level = 100)
    {
        std::vector<unsigned char> rgba(static_cast<size_t>(w) * h * 4);
        view->ActivateContext();
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
        view->DeactivateContext();
        TezBox2<float> box;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                if (rgba[(static_cast<size_t>(y) * w + x) * 4] > level)
                    box += TezVector2<float>(static_cast<float>(x), static_cast<float>(y));
        return box;
    }

    int w = 0, h = 0;
    TezRef<TezRenderView> view;
};

// A flat label's pixels lie where its font's ink box says, with the pen at
// the projection of its position.
TEST_F(TextDrawTest, FlatLabelInkSitsAtTheProjectedPen)
{
    Open(256, 64);
    TezRef<TezSceneText> label = TezSceneText::Create("Hello, Wq!", {0, 0, 0});
    label->GetText3d().SetFont("bitmap,DejaVu Sans,16");
    label->SetColor({1, 1, 1, 1});
    view->GetScene()->AddChild(view->GetScene()->GetRoot(), TezRef<TezSceneObject>(label));
    view->Paint();
    TezBox2<float> const lit = LitBox();
    ASSERT_FALSE(lit.Empty());

    TezRef<QuickFont::QFont> font = QuickFont::QFont::Open("DejaVu Sans", 16, "/nonexistent/");
    font->GetOptions()->monospacing = QuickFont::QFontRenderOptions::No;
    font->GetOptions()->monospacingSpacing = label->GetText3d().GetSpacing() * 0.5f;
    TezBox2<float> const ink = font->MeasureInk("Hello, Wq!");
    // The origin projects to the view's middle; pixel x covers [x, x + 1).
    float const penX = w / 2.0f, penY = h / 2.0f;
    EXPECT_NEAR(lit.GetMinimum().x, penX + ink.GetMinimum().x, 1.5f);
    EXPECT_NEAR(lit.GetMaximum().x + 1, penX + ink.GetMaximum().x, 1.5f);
    EXPECT_NEAR(lit.GetMinimum().y, penY + ink.GetMinimum().y, 1.5f);
    EXPECT_NEAR(lit.GetMaximum().y + 1, penY + ink.GetMaximum().y, 1.5f);

    // Centred on the point, the same ink moves left by half the length.
    label->GetText3d().SetTextPosition(TezText3d::TextCenter);
    view->Paint();
    float const length = label->GetText3d().GetRawLength("Hello, Wq!");
    EXPECT_NEAR(LitBox().GetMinimum().x, lit.GetMinimum().x - std::round(length / 2), 1.5f);
}

// A solid "O" facing the camera shows its ring lit and its hole dark.
TEST_F(TextDrawTest, SolidOShowsItsHole)
{
    Open(128, 128);
    TezRef<TezSceneText> text = TezSceneText::Create("O", {0, 0, 0});
    text->GetText3d().SetFont("DejaVu Sans,20");
    text->GetText3d().SetTextPosition(TezText3d::TextMiddle);
    text->GetText3d().SetScale(0.15f);
    text->SetColor({1, 1, 1, 1});
    view->GetScene()->AddChild(view->GetScene()->GetRoot(), TezRef<TezSceneObject>(text));
    view->Paint();
    TezBox2<float> const lit = LitBox(20);
    ASSERT_FALSE(lit.Empty());
    TezVector2<float> const middle = lit.Middle();
    std::vector<unsigned char> pixel(4);
    view->ActivateContext();
    glReadPixels(static_cast<int>(middle.x), static_cast<int>(middle.y), 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel.data());
    view->DeactivateContext();
    EXPECT_LT(pixel[0], 20);
    EXPECT_GT(lit.Extents().x, 20);
    EXPECT_GT(lit.Extents().y, 20);
}

// The picture for people: an axis cross with flat labels and a line of
// solid text, written to /tmp/tez_text_widgets.png.
TEST_F(TextDrawTest, LabelledWidgetsPicture)
{
    Open(480, 320);
    view->SetBackgroundColor({0.12f, 0.13f, 0.16f, 1});
    TezRef<TezCameraView> camera = view->GetCamera();
    camera->SetEye({6, 4, 10});
    TezRef<TezScene> scene = view->GetScene();
    struct Axis
    {
        char const* name;
        TezMatrix44<float> turn;
        TezVector4<float> color;
        TezVector3<float> tip;
    };
    float const half = 1.5707963f;
    Axis const axes[] = {
        {"X", TezRotationAboutY<float>(half), {0.9f, 0.25f, 0.2f, 1}, {2.6f, 0, 0}},
        {"Y", TezRotationAboutX<float>(-half), {0.3f, 0.85f, 0.3f, 1}, {0, 2.6f, 0}},
        {"Z", TezIdentityTransform<float>(), {0.3f, 0.5f, 1.0f, 1}, {0, 0, 2.6f}},
    };
    for (Axis const& axis : axes) {
        TezRef<TezSceneCylinder> shaft = TezSceneCylinder::Create(0.05f, 2.0f);
        shaft->SetTransform(axis.turn);
        shaft->SetColor(axis.color);
        TezRef<TezSceneCone> head = TezSceneCone::Create(0.15f, 0.4f);
        head->SetTransform(axis.turn * TezTranslationTransform<float>({0, 0, 2.0f}));
        head->SetColor(axis.color);
        TezRef<TezSceneText> label = TezSceneText::Create(axis.name, axis.tip);
        label->GetText3d().SetTextPosition(TezText3d::TextMiddle);
        label->SetColor(axis.color);
        scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(shaft));
        scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(head));
        scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(label));
    }
    TezRef<TezSceneText> caption = TezSceneText::Create("flat label: bitmap,Calibri,16", {-2.5f, -2.2f, 0});
    caption->SetColor({0.95f, 0.95f, 0.95f, 1});
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(caption));
    TezRef<TezSceneText> solid = TezSceneText::Create("Solid Tez", {-0.5f, 1.0f, -1.5f});
    solid->GetText3d().SetFont("DejaVu Sans,24");
    solid->GetText3d().SetScale(0.035f);
    solid->GetText3d().SetYRotate(-25.0f);
    solid->GetText3d().SetXRotate(-15.0f);
    solid->SetColor({0.95f, 0.75f, 0.3f, 1});
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(solid));
    view->Paint();
    EXPECT_TRUE(view->ExportImageToFile("/tmp/tez_text_widgets.png"));
    EXPECT_FALSE(LitBox(200).Empty());
}

} // namespace
