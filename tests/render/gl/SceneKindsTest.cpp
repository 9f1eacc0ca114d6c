#include "tests/render/gl/GLViewTest.h"

#include "core/Preferences.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/objects/RgbaBitmap.h"
#include "render/objects/SceneBackground.h"
#include "render/objects/SceneGdiOverlay.h"
#include "render/objects/SceneIntersectionLines.h"
#include "render/objects/ScenePointSprites.h"
#include "render/objects/ScenePolyline.h"
#include "render/objects/ScenePrimitives.h"
#include "render/objects/SceneRectangle.h"
#include "render/objects/SceneRibbons.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"

#include <GL/glew.h>

#include <functional>
#include <string>

namespace {

constexpr int kSize = 64;

class SceneKindsTest : public GLViewTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        if (IsSkipped())
            return;
        MakeView(kSize, kSize, {0, 0, 6}, {0, 0, 0}, 3.0f, 9.0f);
    }

    TezRef<TezScene> FreshScene()
    {
        view->ActivateContext();
        view->SetScene(TezScene::Create());
        view->DeactivateContext();
        return view->GetScene();
    }

    // RGBA of the whole frame, bottom row first.
    std::vector<unsigned char> Frame()
    {
        std::vector<unsigned char> rgba(kSize * kSize * 4);
        view->ActivateContext();
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glReadPixels(0, 0, kSize, kSize, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
        view->DeactivateContext();
        return rgba;
    }

    TezVector4<int> At(int x, int y)
    {
        std::vector<unsigned char> const rgba = Frame();
        size_t const i = (static_cast<size_t>(y) * kSize + x) * 4;
        return {rgba[i], rgba[i + 1], rgba[i + 2], rgba[i + 3]};
    }

    int CountNotBlack()
    {
        std::vector<unsigned char> const rgba = Frame();
        int count = 0;
        for (size_t i = 0; i < rgba.size(); i += 4)
            if (rgba[i] + rgba[i + 1] + rgba[i + 2] > 30)
                ++count;
        return count;
    }
};

struct Kind
{
    std::string name;
    std::function<TezRef<TezSceneObject>()> make;
    std::function<void(TezSceneObject&)> change; // a setter that changes the shape
};

TezRef<TezRgbaBitmap> Filled(int width, int height, TezVector4<unsigned char> rgba)
{
    TezRef<TezRgbaBitmap> bitmap = TezRgbaBitmap::Create(width, height);
    bitmap->Fill(rgba);
    return bitmap;
}

std::vector<Kind> Kinds()
{
    std::vector<TezVector3<float>> const zigzag = {{-1, -0.5f, 0}, {-0.3f, 0.5f, 0}, {0.3f, -0.5f, 0}, {1, 0.5f, 0}};
    std::vector<TezVector3<float>> const grid = {
        {-0.5f, -0.5f, 0}, {0.5f, -0.5f, 0}, {0, 0, 0}, {-0.5f, 0.5f, 0}, {0.5f, 0.5f, 0}};
    return {
        {"box",
         [] {
             return TezRef<TezSceneObject>(TezSceneBox::Create({{-0.8f, -0.8f, -0.8f}, {0.8f, 0.8f, 0.8f}}));
         },
         [](TezSceneObject& o) {
             static_cast<TezSceneBox&>(o).SetBox({{-0.6f, -0.6f, -0.6f}, {0.6f, 0.6f, 0.6f}});
         }},
        {"cone", [] { return TezRef<TezSceneObject>(TezSceneCone::Create(0.8f, 1.0f)); },
         [](TezSceneObject& o) { static_cast<TezSceneCone&>(o).SetCone(0.7f, 1.2f); }},
        {"cylinder", [] { return TezRef<TezSceneObject>(TezSceneCylinder::Create(0.8f, 1.0f)); },
         [](TezSceneObject& o) { static_cast<TezSceneCylinder&>(o).SetCylinder(0.6f, 1.2f); }},
        {"sphere", [] { return TezRef<TezSceneObject>(TezSceneSphere::Create(0.8f)); },
         [](TezSceneObject& o) { static_cast<TezSceneSphere&>(o).SetRadius(0.6f); }},
        {"quad", [] { return TezRef<TezSceneObject>(TezSceneQuad::Create(0.8f, 0.6f)); },
         [](TezSceneObject& o) { static_cast<TezSceneQuad&>(o).SetQuad(0.6f, 0.6f); }},
        {"frame", [] { return TezRef<TezSceneObject>(TezSceneFrame::Create(0.9f, 0.5f, 0.2f)); },
         [](TezSceneObject& o) { static_cast<TezSceneFrame&>(o).SetFrame(0.8f, 0.4f, 0.2f); }},
        {"rectangle",
         [] {
             return TezRef<TezSceneObject>(TezSceneRectangle::Create({{0.2f, 0.2f}, {0.8f, 0.7f}}));
         },
         [](TezSceneObject& o) {
             static_cast<TezSceneRectangle&>(o).SetRectangle({{0.3f, 0.3f}, {0.6f, 0.6f}});
         }},
        {"polyline", [=] { return TezRef<TezSceneObject>(TezScenePolyline::Create(zigzag)); },
         [=](TezSceneObject& o) {
             static_cast<TezScenePolyline&>(o).SetVertices({zigzag[0], zigzag[3]});
         }},
        {"polyline points",
         [=] { return TezRef<TezSceneObject>(TezScenePolyline::Create(grid, TezScenePolyline::Points)); },
         [=](TezSceneObject& o) { static_cast<TezScenePolyline&>(o).SetVertices(zigzag); }},
        {"polyline group",
         [=] {
             return TezRef<TezSceneObject>(TezScenePolylineGroup::Create({zigzag, grid}));
         },
         [=](TezSceneObject& o) { static_cast<TezScenePolylineGroup&>(o).SetVertices({grid}); }},
        {"thick polyline", [=] { return TezRef<TezSceneObject>(TezSceneThickPolyline::Create(zigzag)); },
         [](TezSceneObject& o) { static_cast<TezSceneThickPolyline&>(o).SetClosed(true); }},
        {"circle sprites",
         [=] {
             TezRef<TezScenePointSprites> sprites = TezScenePointSprites::Create(TezScenePointSprites::Circles);
             sprites->SetPoints(grid);
             return TezRef<TezSceneObject>(sprites);
         },
         [=](TezSceneObject& o) { static_cast<TezScenePointSprites&>(o).SetPoints(zigzag); }},
        {"triangle sprites",
         [=] {
             TezRef<TezScenePointSprites> sprites = TezScenePointSprites::Create(TezScenePointSprites::Triangles);
             sprites->SetPoints(grid, std::vector<TezVector3<float>>(grid.size(), {1, 0, 0}));
             return TezRef<TezSceneObject>(sprites);
         },
         [=](TezSceneObject& o) { static_cast<TezScenePointSprites&>(o).SetPoints(zigzag); }},
        {"overlay",
         [] {
             return TezRef<TezSceneObject>(TezSceneGdiOverlay::Create(Filled(20, 10, {200, 50, 50, 255})));
         },
         [](TezSceneObject& o) {
             static_cast<TezSceneGdiOverlay&>(o).SetBitmap(Filled(8, 8, {50, 200, 50, 255}));
         }},
        {"background", [] { return TezRef<TezSceneObject>(TezSceneBackground::Create()); },
         [](TezSceneObject& o) {
             static_cast<TezSceneBackground&>(o).SetImage(Filled(4, 4, {50, 50, 200, 255}));
         }},
        {"ribbon box", [] { return TezRef<TezSceneObject>(TezSceneRibbonBox::Create(0.7f, 0.7f, 0.8f)); },
         [](TezSceneObject& o) { static_cast<TezSceneRibbonBox&>(o).SetHeight(1.0f); }},
        {"ribbon cylinder", [] { return TezRef<TezSceneObject>(TezSceneRibbonCylinder::Create(0.8f, 0.5f, 0.8f)); },
         [](TezSceneObject& o) { static_cast<TezSceneRibbonCylinder&>(o).SetCylinder(0.5f, 0.8f, 0.6f); }},
        {"ribbon sphere", [] { return TezRef<TezSceneObject>(TezSceneRibbonSphere::Create(0.9f)); },
         [](TezSceneObject& o) { static_cast<TezSceneRibbonSphere&>(o).SetRadius(0.7f); }},
    };
}

TEST_F(SceneKindsTest, EveryKindDrawsAndRebuildsOnlyInTheNextDraw)
{
    for (Kind const& kind : Kinds()) {
        SCOPED_TRACE(kind.name);
        TezRef<TezScene> scene = FreshScene();
        TezRef<TezSceneObject> object = kind.make();
        object->SetColor({0.9f, 0.6f, 0.3f, 1.0f});
        // Turned a little, so that flat and round shapes all show an area.
        if (!object->GetProperty(TezSceneObject::NoBounds))
            object->SetTransform(TezRotationAboutX<float>(-0.4f) * TezRotationAboutY<float>(0.3f));
        scene->AddChild(scene->GetRoot(), object);
        EXPECT_TRUE(object->GetProperty(TezSceneObject::NeedsBuild));
        view->Paint();
        EXPECT_FALSE(object->GetProperty(TezSceneObject::NeedsBuild));
        int const drawn = CountNotBlack();
        EXPECT_GT(drawn, 8);

        kind.change(*object);
        EXPECT_TRUE(object->GetProperty(TezSceneObject::NeedsBuild));
        EXPECT_TRUE(object->GetProperty(TezSceneObject::NeedsBuild)); // nothing builds but a draw
        view->Paint();
        EXPECT_FALSE(object->GetProperty(TezSceneObject::NeedsBuild));
        EXPECT_GT(CountNotBlack(), 8);

        // Unbuilding twice is safe, and the scene does it once more on removal.
        view->ActivateContext();
        EXPECT_TRUE(object->UnbuildObject());
        EXPECT_TRUE(object->UnbuildObject());
        view->DeactivateContext();
        scene->RemoveChild(object);
        view->Paint();
        EXPECT_EQ(0, CountNotBlack());
    }
}

TEST_F(SceneKindsTest, OverlayBitmapSitsAtItsPixelsTopRowUp)
{
    TezRef<TezScene> scene = FreshScene();
    TezRef<TezRgbaBitmap> bitmap = Filled(8, 4, {255, 0, 0, 255});
    for (int x = 0; x < 8; ++x)
        bitmap->SetPixel(x, 0, {0, 255, 0, 255});
    TezRef<TezSceneGdiOverlay> overlay = TezSceneGdiOverlay::Create(bitmap);
    overlay->SetPosition({10, 5});
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(overlay));
    view->Paint();
    // Pixel rows of the view counted down from the top: 5 is the bitmap's
    // top row (green), 6 to 8 its red ones.
    auto row = [](int fromTop) { return kSize - 1 - fromTop; };
    EXPECT_EQ(TezVector4<int>(0, 255, 0, 255), At(10, row(5)));
    EXPECT_EQ(TezVector4<int>(255, 0, 0, 255), At(17, row(8)));
    EXPECT_EQ(TezVector4<int>(0, 0, 0, 255), At(9, row(6)));
    EXPECT_EQ(TezVector4<int>(0, 0, 0, 255), At(18, row(6)));
    EXPECT_EQ(TezVector4<int>(0, 0, 0, 255), At(12, row(9)));

    // Half opacity over black; a stretched size; a changed bitmap reloads.
    overlay->SetOpacity(0.5f);
    overlay->SetSize({16, 8});
    bitmap->Fill({0, 0, 255, 255});
    view->Paint();
    EXPECT_NEAR(128, At(25, row(12)).z, 2);
    EXPECT_EQ(0, At(25, row(12)).x);
}

TEST_F(SceneKindsTest, RubberBandOutlinesItsScreenRectangle)
{
    TezRef<TezScene> scene = FreshScene();
    TezRef<TezSceneRectangle> band = TezSceneRectangle::Create({{0.25f, 0.5f}, {0.75f, 0.75f}});
    band->SetColor({1, 1, 1, 1});
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(band));
    // An opaque quad in front does not hide it.
    TezRef<TezSceneQuad> quad = TezSceneQuad::Create(2.0f, 2.0f);
    quad->SetColor({0, 0, 0.5f, 1});
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(quad));
    view->Paint();
    std::vector<unsigned char> const rgba = Frame();
    auto white = [&](int x, int y) { return rgba[(static_cast<size_t>(y) * kSize + x) * 4] > 200; };
    // The bottom edge at y = 0.5 of the height, between x = 0.25 and 0.75.
    EXPECT_TRUE(white(32, 31) || white(32, 32));
    EXPECT_TRUE(white(32, 47) || white(32, 48));
    EXPECT_TRUE(white(15, 40) || white(16, 40));
    EXPECT_FALSE(white(32, 40)); // inside: not filled
    EXPECT_FALSE(white(32, 20)); // below
    EXPECT_TRUE(band->GetBounds(false).Empty());
}

TEST_F(SceneKindsTest, RibbonBoxTakesABoxAndAnswersPicks)
{
    TezRef<TezSceneRibbonBox> box = TezSceneRibbonBox::Create();
    EXPECT_FLOAT_EQ(0.2f, box->GetColor().w);
    EXPECT_TRUE(box->GetProperty(TezSceneObject::Mappable));
    EXPECT_FLOAT_EQ(20.0f, box->GetRibbonWidth());
    box->SetBox({{1, 2, 3}, {5, 6, 9}});
    EXPECT_FLOAT_EQ(2.0f, box->GetWidth());
    EXPECT_FLOAT_EQ(2.0f, box->GetDepth());
    EXPECT_FLOAT_EQ(6.0f, box->GetHeight());
    TezBox3<float> const bounds = box->GetBounds(false);
    EXPECT_NEAR(1.0f, bounds.GetMinimum().x, 1e-5f);
    EXPECT_NEAR(2.0f, bounds.GetMinimum().y, 1e-5f);
    EXPECT_NEAR(3.0f, bounds.GetMinimum().z, 1e-5f);
    EXPECT_NEAR(9.0f, bounds.GetMaximum().z, 1e-5f);

    // Seen end on, its rim ribbons are where picks find it; the middle is
    // open.
    TezRef<TezScene> scene = FreshScene();
    box = TezSceneRibbonBox::Create(1.0f, 1.0f, 0.5f);
    box->SetRibbonWidth(6.0f);
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(box));
    ASSERT_TRUE(view->Map());
    TezVector3<float> const edge = view->GetCamera()->PixelFromPoint({1.0f, 0.0f, 0.5f});
    EXPECT_EQ(box->Id(), view->Pick({static_cast<int>(edge.x), static_cast<int>(edge.y)}));
    EXPECT_EQ(0u, view->Pick({kSize / 2, kSize / 2}));
}

TEST_F(SceneKindsTest, IntersectionLinesFollowWhereTwoSurfacesCross)
{
    TezRef<TezScene> scene = FreshScene();
    // A quad facing the eye and one turned about y through the same
    // centre: they cross along the vertical line x = 0.
    TezRef<TezSceneQuad> facing = TezSceneQuad::Create(1.0f, 1.0f);
    TezRef<TezSceneQuad> turned = TezSceneQuad::Create(1.0f, 1.0f);
    turned->SetTransform(TezRotationAboutY<float>(0.9f));
    facing->SetColor({0.2f, 0.2f, 0.2f, 1});
    turned->SetColor({0.2f, 0.2f, 0.2f, 1});
    TezRef<TezSceneIntersectionLines> lines =
        TezSceneIntersectionLines::Create(TezRef<TezSceneObject>(facing), TezRef<TezSceneObject>(turned));
    lines->SetColor({1, 1, 0, 1});
    lines->SetShadingEnabled(false);
    // About a pixel and a half of the turned quad's depth slope here.
    lines->SetDepthTolerance(0.01f);
    for (TezRef<TezSceneObject> object :
         {TezRef<TezSceneObject>(facing), TezRef<TezSceneObject>(turned), TezRef<TezSceneObject>(lines)})
        scene->AddChild(scene->GetRoot(), object);
    view->Paint();
    std::vector<unsigned char> const rgba = Frame();
    auto yellow = [&](int x, int y) {
        size_t const i = (static_cast<size_t>(y) * kSize + x) * 4;
        return rgba[i] > 200 && rgba[i + 1] > 200 && rgba[i + 2] < 60;
    };
    int onLine = 0, offLine = 0;
    for (int y = 24; y < 40; ++y) {
        onLine += yellow(31, y) || yellow(32, y);
        for (int x : {20, 44})
            offLine += yellow(x, y);
    }
    EXPECT_GE(onLine, 14);
    EXPECT_EQ(0, offLine);
}

TEST_F(SceneKindsTest, BackgroundPictureLiesOverTheGradientByItsLevel)
{
    TezRef<TezScene> scene = FreshScene();
    TezRef<TezSceneBackground> background = TezSceneBackground::Create();
    background->SetValue(0.0f); // a black gradient
    TezRef<TezRgbaBitmap> picture = Filled(2, 2, {255, 0, 0, 255});
    background->SetImage(picture);
    background->SetImageLevel(1.0f);
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(background));
    view->Paint();
    EXPECT_EQ(TezVector4<int>(255, 0, 0, 255), At(kSize / 2, kSize / 2));
    background->SetImageLevel(0.5f);
    picture->Fill({0, 0, 255, 255});
    view->Paint();
    EXPECT_NEAR(128, At(kSize / 2, kSize / 2).z, 2);
    background->SetImageLevel(0.0f);
    view->Paint();
    EXPECT_EQ(TezVector4<int>(0, 0, 0, 255), At(kSize / 2, kSize / 2));
}

TEST(RgbaBitmap, RefusesPixelsOutsideAndEmptySizes)
{
    EXPECT_THROW(TezRgbaBitmap::Create(0, 4), std::runtime_error);
    TezRef<TezRgbaBitmap> bitmap = TezRgbaBitmap::Create(3, 2);
    EXPECT_EQ(TezVector4<unsigned char>(0, 0, 0, 0), bitmap->GetPixel(2, 1));
    uint64_t const version = bitmap->GetVersion();
    bitmap->SetPixel(2, 1, {1, 2, 3, 4});
    EXPECT_GT(bitmap->GetVersion(), version);
    EXPECT_EQ(4, bitmap->GetPixels()[(1 * 3 + 2) * 4 + 3]);
    EXPECT_THROW(bitmap->SetPixel(3, 0, {0, 0, 0, 0}), std::out_of_range);
    EXPECT_THROW(bitmap->GetPixel(0, -1), std::out_of_range);
}

} // namespace
