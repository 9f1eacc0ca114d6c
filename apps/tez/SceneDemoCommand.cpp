// tez scene-demo: one frame of an off-screen render view holding every kind
// of scene object, saved through the view's image export, so that a person
// can look at all of them at once.

#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/gl/OpenGLSupport.h"
#include "render/objects/RgbaBitmap.h"
#include "render/objects/SceneBackground.h"
#include "render/objects/SceneGdiOverlay.h"
#include "render/objects/SceneIntersectionLines.h"
#include "render/objects/ScenePointSprites.h"
#include "render/objects/ScenePolyline.h"
#include "render/objects/ScenePrimitives.h"
#include "render/objects/SceneRectangle.h"
#include "render/objects/SceneRibbons.h"
#include "render/scene/Light.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/OffscreenGL.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {
char const* const kAbout = "Rows from the top: box edges, cone, cylinder, sphere, quad, frame; polyline,\n"
                           "polyline group, thick polyline, circle sprites, triangle sprites, ribbon box;\n"
                           "ribbon cylinder, ribbon sphere, the intersection lines of a sphere and a\n"
                           "cylinder, and a transparent quad behind a cone, blended over it as the\n"
                           "transparent pass does (depth test off). Over them: the rubber band\n"
                           "round the ribbon sphere and an overlay bitmap; behind them the background\n"
                           "gradient with a picture. Drawn off-screen through EGL (llvmpipe where there\n"
                           "is no GPU).\n";

constexpr float kSpacing = 2.2f;
constexpr float kPi = 3.14159265f;

TezVector3<float> Cell(int column, int row)
{
    return {(static_cast<float>(column) - 2.5f) * kSpacing, (1.0f - static_cast<float>(row)) * kSpacing, 0.0f};
}

// Shapes made along +z stand up (+y) with their tops turned a little
// towards the viewer.
TezMatrix44<float> Upright(TezVector3<float> const& at, float lift = -0.6f)
{
    return TezTranslationTransform<float>(at + TezVector3<float>(0.0f, lift, 0.0f)) * TezRotationAboutY<float>(0.35f) *
           TezRotationAboutX<float>(-1.2f);
}

TezMatrix44<float> Tilted(TezVector3<float> const& at)
{
    return TezTranslationTransform<float>(at) * TezRotationAboutY<float>(0.45f) * TezRotationAboutX<float>(-0.5f);
}

template <class T>
TezRef<T> Add(TezRef<TezScene> const& scene, TezRef<T> object, TezVector4<float> const& color,
              TezMatrix44<float> const& transform)
{
    object->SetColor(color);
    object->SetTransform(transform);
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(object));
    return object;
}

std::vector<TezVector3<float>> Circle(float radius, int n, float z = 0.0f)
{
    std::vector<TezVector3<float>> points;
    for (int i = 0; i <= n; ++i) {
        float const a = 2.0f * kPi * static_cast<float>(i) / static_cast<float>(n);
        points.emplace_back(radius * std::cos(a), radius * std::sin(a), z);
    }
    return points;
}

// The host's legend: one swatch per row colour on a rounded dark plate.
TezRef<TezRgbaBitmap> MakeLegend(std::vector<TezVector4<float>> const& colors)
{
    int const swatch = 22, pad = 8;
    int const width = pad + static_cast<int>(colors.size()) * (swatch + pad), height = swatch + 2 * pad;
    TezRef<TezRgbaBitmap> bitmap = TezRgbaBitmap::Create(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            // Corners of radius `pad` left transparent.
            int const dx = std::max({pad - x, x - (width - 1 - pad), 0});
            int const dy = std::max({pad - y, y - (height - 1 - pad), 0});
            if (dx * dx + dy * dy > pad * pad)
                continue;
            TezVector4<unsigned char> rgba(30, 32, 40, 210);
            int const column = (x - pad) / (swatch + pad), inside = (x - pad) % (swatch + pad);
            if (x >= pad && column < static_cast<int>(colors.size()) && inside < swatch && y >= pad &&
                y < pad + swatch) {
                TezVector4<float> const c = colors[static_cast<size_t>(column)];
                rgba = TezVector4<unsigned char>(static_cast<unsigned char>(c.x * 255),
                                                 static_cast<unsigned char>(c.y * 255),
                                                 static_cast<unsigned char>(c.z * 255), 255);
            }
            bitmap->SetPixel(x, y, rgba);
        }
    }
    return bitmap;
}

// The background picture: soft light rings about the middle, mostly clear,
// so that the gradient shows between them.
TezRef<TezRgbaBitmap> MakeBackdrop()
{
    int const size = 256;
    TezRef<TezRgbaBitmap> bitmap = TezRgbaBitmap::Create(size, size);
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            float const dx = (static_cast<float>(x) - size * 0.5f) / size,
                        dy = (static_cast<float>(y) - size * 0.5f) / size;
            float const r = std::sqrt(dx * dx + dy * dy);
            float const ring = 0.5f + 0.5f * std::cos(r * 2.0f * kPi * 6.0f);
            float const fade = std::max(0.0f, 1.0f - r * 1.6f);
            bitmap->GetPixels()[(static_cast<size_t>(y) * size + x) * 4 + 0] = 255;
            bitmap->GetPixels()[(static_cast<size_t>(y) * size + x) * 4 + 1] = 255;
            bitmap->GetPixels()[(static_cast<size_t>(y) * size + x) * 4 + 2] = 255;
            bitmap->GetPixels()[(static_cast<size_t>(y) * size + x) * 4 + 3] =
                static_cast<unsigned char>(90.0f * ring * ring * fade);
        }
    }
    bitmap->Changed();
    return bitmap;
}

// Every kind in its cell; returns how many kinds went in.
int BuildScene(TezRef<TezScene> const& scene, std::vector<TezRef<TezSceneObject>>& framed)
{
    TezVector4<float> const orange{0.88f, 0.48f, 0.2f, 1}, blue{0.25f, 0.55f, 0.88f, 1}, green{0.3f, 0.72f, 0.38f, 1},
        gold{0.85f, 0.75f, 0.25f, 1}, violet{0.62f, 0.38f, 0.78f, 1}, grey{0.55f, 0.56f, 0.6f, 1},
        dark{0.12f, 0.13f, 0.16f, 1};
    int kinds = 0;

    TezRef<TezSceneBackground> background = TezSceneBackground::Create();
    background->SetImage(MakeBackdrop());
    background->SetImageLevel(0.6f);
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(background));
    ++kinds;

    // Row 0: the simple shapes.
    Add(scene, TezSceneBox::Create(TezBox3<float>({-0.7f, -0.7f, -0.7f}, {0.7f, 0.7f, 0.7f})), dark,
        Tilted(Cell(0, 0)));
    Add(scene, TezSceneCone::Create(0.7f, 1.4f), orange, Upright(Cell(1, 0)));
    Add(scene, TezSceneCylinder::Create(0.55f, 1.3f), blue, Upright(Cell(2, 0)));
    Add(scene, TezSceneSphere::Create(0.75f), green, TezTranslationTransform<float>(Cell(3, 0)));
    Add(scene, TezSceneQuad::Create(0.7f, 0.6f), gold, Tilted(Cell(4, 0)));
    Add(scene, TezSceneFrame::Create(0.75f, 0.45f, 0.25f), violet, Tilted(Cell(5, 0)));
    kinds += 6;

    // Row 1: lines, sprites and the ribbon box.
    std::vector<TezVector3<float>> helix;
    for (int i = 0; i <= 160; ++i) {
        float const t = static_cast<float>(i) / 160.0f;
        helix.emplace_back(0.6f * std::cos(t * 8.0f * kPi), 1.5f * t - 0.75f, 0.6f * std::sin(t * 8.0f * kPi));
    }
    Add(scene, TezScenePolyline::Create(helix), dark, TezTranslationTransform<float>(Cell(0, 1)));
    std::vector<std::vector<TezVector3<float>>> rings;
    for (float r : {0.3f, 0.5f, 0.7f})
        rings.push_back(Circle(r, 48, r - 0.5f));
    Add(scene, TezScenePolylineGroup::Create(rings), blue, Tilted(Cell(1, 1)));
    std::vector<TezVector3<float>> star;
    for (int i = 0; i < 10; ++i) {
        float const a = 2.0f * kPi * static_cast<float>(i) / 10.0f + kPi / 2.0f;
        float const r = (i % 2) ? 0.35f : 0.8f;
        star.emplace_back(r * std::cos(a), r * std::sin(a), 0.0f);
    }
    TezRef<TezSceneThickPolyline> thick =
        Add(scene, TezSceneThickPolyline::Create(star, true), orange, Tilted(Cell(2, 1)));
    thick->SetThickness(0.12f);
    std::vector<TezVector3<float>> grid;
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j)
            grid.emplace_back(-0.7f + 0.28f * i, -0.7f + 0.28f * j, 0.25f * std::sin(1.3f * (i + j)));
    TezRef<TezScenePointSprites> circles = TezScenePointSprites::Create(TezScenePointSprites::Circles);
    circles->SetPoints(grid);
    circles->SetPointSize(18.0f);
    Add(scene, circles, green, Tilted(Cell(3, 1)));
    std::vector<TezVector3<float>> around, tangents;
    for (int i = 0; i < 12; ++i) {
        float const a = 2.0f * kPi * static_cast<float>(i) / 12.0f;
        around.emplace_back(0.7f * std::cos(a), 0.7f * std::sin(a), 0.0f);
        tangents.emplace_back(-std::sin(a), std::cos(a), 0.0f);
    }
    TezRef<TezScenePointSprites> triangles = TezScenePointSprites::Create(TezScenePointSprites::Triangles);
    triangles->SetPoints(around, tangents);
    triangles->SetPointSize(22.0f);
    Add(scene, triangles, violet, TezTranslationTransform<float>(Cell(4, 1)));
    TezRef<TezSceneRibbonBox> ribbonBox = TezSceneRibbonBox::Create(0.55f, 0.45f, 1.1f);
    ribbonBox->SetRibbonWidth(5.0f);
    Add(scene, ribbonBox, TezVector4<float>(0.2f, 0.45f, 0.85f, 0.2f), Upright(Cell(5, 1), -0.45f));
    kinds += 6;

    // Row 2: the other ribbons, intersection lines, and the transparent pass.
    TezRef<TezSceneRibbonCylinder> ribbonCylinder = TezSceneRibbonCylinder::Create(0.6f, 0.35f, 1.2f);
    ribbonCylinder->SetRibbonWidth(5.0f);
    ribbonCylinder->SetShowDiagonals(true);
    Add(scene, ribbonCylinder, TezVector4<float>(0.85f, 0.4f, 0.2f, 0.2f), Upright(Cell(1, 2), -0.5f));
    TezRef<TezSceneRibbonSphere> ribbonSphere = TezSceneRibbonSphere::Create(0.75f);
    ribbonSphere->SetRibbonWidth(3.0f);
    Add(scene, ribbonSphere, TezVector4<float>(0.25f, 0.65f, 0.35f, 0.2f),
        TezTranslationTransform<float>(Cell(2, 2)) * TezRotationAboutX<float>(-1.2f));
    framed.push_back(TezRef<TezSceneObject>(ribbonSphere));
    TezRef<TezSceneSphere> ball =
        Add(scene, TezSceneSphere::Create(0.7f), grey, TezTranslationTransform<float>(Cell(3, 2)));
    TezRef<TezSceneCylinder> rod =
        Add(scene, TezSceneCylinder::Create(0.32f, 1.8f), blue,
            TezTranslationTransform<float>(Cell(3, 2)) * TezRotationAboutZ<float>(0.5f) *
                TezRotationAboutY<float>(1.25f) * TezTranslationTransform<float>({0.0f, 0.0f, -0.9f}));
    TezRef<TezSceneIntersectionLines> lines =
        TezSceneIntersectionLines::Create(TezRef<TezSceneObject>(ball), TezRef<TezSceneObject>(rod));
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(lines));
    Add(scene, TezSceneCone::Create(0.6f, 1.2f), orange, Upright(Cell(4, 2)));
    // Behind the cone, and yet blended over it: the transparent pass draws
    // with the depth test off.
    TezRef<TezSceneQuad> glass =
        Add(scene, TezSceneQuad::Create(0.75f, 0.45f), TezVector4<float>(0.3f, 0.6f, 0.95f, 0.45f),
            TezTranslationTransform<float>(Cell(4, 2) + TezVector3<float>(0.0f, 0.1f, -0.9f)));
    glass->SetProperty(TezSceneObject::Transparent, true);
    kinds += 3;

    // On top: the rubber band (placed once the camera is set) and the legend.
    TezRef<TezSceneRectangle> band = TezSceneRectangle::Create();
    band->SetColor({1.0f, 1.0f, 1.0f, 1.0f});
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(band));
    framed.push_back(TezRef<TezSceneObject>(band));
    TezRef<TezSceneGdiOverlay> legend = TezSceneGdiOverlay::Create(MakeLegend({orange, blue, green, gold, violet}));
    legend->SetPosition({14, 14});
    legend->SetOpacity(0.9f);
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(legend));
    kinds += 2;
    return kinds;
}

// The rubber band round an object, in normalized screen units.
TezBox2<float> ScreenBox(TezCameraView const& camera, TezRef<TezSceneObject> const& object)
{
    TezBox3<float> const box = object->GetWorldMatrix() * object->GetObjectBounds();
    TezBox2<float> screen;
    for (int c = 0; c < 8; ++c) {
        TezVector3<float> const pixel = camera.PixelFromPoint(box.Corner(c & 1, c & 2, c & 4));
        screen += TezVector2<float>(pixel.x / camera.GetWidth(), pixel.y / camera.GetHeight());
    }
    screen.Grow(0.01f);
    return screen;
}

} // namespace

int TezSceneDemoCommand(TezArgs const& args, FILE* out, FILE* err)
{
    TezPictureArgs picture{"tez-scene.png", 1200, 900};
    CLI::App cli("Draws every kind of scene object in one frame of an off-screen render view.", "tez scene-demo");
    picture.AddOptions(cli, false);
    cli.footer(kAbout);
    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    picture.Finish();
    std::string const& output = picture.output;
    int const width = picture.width, height = picture.height;

    // The application's context, made on a window of its own; the view
    // draws into a hidden surface of the asked size with the same context.
    TezOffscreenGL gl;
    if (!gl.Ok()) {
        std::fprintf(err, "tez scene-demo: %s", gl.Problem().c_str());
        return 1;
    }
    int result = 1;
    TezHostApplication app(gl.GetContext(), gl.GetWindow());
    TezRef<TezRenderViewManager> manager = TezRenderViewManager::GetAppRenderViewManager();
    TezRef<TezRenderView> view = manager ? manager->CreateOffScreenCuda(width, height) : nullptr;
    if (!view) {
        std::fprintf(err, "tez scene-demo: no off-screen view of %dx%d can be made\n", width, height);
    } else {
        TezRef<TezScene> scene = view->GetScene();
        std::vector<TezRef<TezSceneObject>> framed;
        int const kinds = BuildScene(scene, framed);
        scene->GetLight()->SetPosition({-12.0f, 14.0f, 30.0f});

        TezRef<TezCameraView> camera = view->GetCamera();
        camera->UsePerspective(true);
        camera->SetFov(30.0f);
        camera->FrameBox(view->GetBounds(false), {0.0f, 0.8f, 10.0f}, {0.0f, 0.0f, 0.0f}, {0.0f, 1.0f, 0.0f}, 0.02f);
        static_cast<TezSceneRectangle*>(framed[1].Get())->SetRectangle(ScreenBox(*camera, framed[0]));

        view->ExportImageToFile(TezString(output.c_str()));
        struct stat info;
        if (stat(output.c_str(), &info) == 0 && info.st_size > 0) {
            view->ActivateContext();
            std::fprintf(out, "%s: %dx%d, %d kinds of scene object, %s\n", output.c_str(), width, height, kinds,
                         TezOpenGLSupport::GetContextDescription().c_str());
            result = 0;
        } else {
            std::fprintf(err, "tez scene-demo: cannot write %s\n", output.c_str());
        }
        // GL objects go while the context is still current.
        view->ActivateContext();
        framed.clear();
        scene = nullptr;
        view->SetScene(nullptr);
        manager->ReleaseRenderView(view);
        view = nullptr;
    }
    manager = nullptr;
    gl.MakeCurrent();
    return result;
}
