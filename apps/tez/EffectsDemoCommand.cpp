// tez effects-demo: the mesh generators' sample shapes drawn with the GL
// effects side by side, off-screen, into a PNG, so that a person can look
// at the shading.

#include "mesh/IndexedMesh.h"
#include "render/CameraView.h"
#include "render/effects/DefaultEffects.h"
#include "render/effects/GeometryEffects.h"
#include "render/effects/PointSpriteEffects.h"
#include "render/gl/FrameBuffer.h"
#include "render/gl/OpenGLSupport.h"
#include "render/objects/SceneBackground.h"
#include "render/objects/SceneMesh.h"
#include "render/scene/Light.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/OffscreenGL.h"
#include "volume/Image.h"

#include <GL/glew.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace {
char const* const kAbout = "Columns: sphere, torus, cone, arrow, ring, frame. Rows from the top: the\n"
                           "default lit effect, the unlit one, the shiny one, the triangle-mesh effect\n"
                           "(lit surface and its edges), circle point sprites on the vertices. Drawn\n"
                           "off-screen through EGL (llvmpipe where there is no GPU).\n";

struct Row
{
    uint32_t effect;
    unsigned drawMode;
};

// The shape scaled into a cell of size 1 around its own centre, tilted so
// that its depth shows.
TezMatrix44<float> Placement(TezRef<TezIndexedMesh> const& mesh, float x, float y)
{
    TezBox3<float> const box = mesh->ComputeBounds();
    float const scale = 0.8f / std::max(box.MaxLength(), 1e-6f);
    TezMatrix44<float> const centre = TezTranslationTransform<float>(box.Center() * -1.0f);
    TezMatrix44<float> const tilt =
        TezRotationAboutY<float>(0.45f) * TezRotationAboutX<float>(-1.05f) * TezScaleTransform<float>(scale);
    return TezTranslationTransform<float>({x, y, 0.0f}) * tilt * centre;
}

} // namespace

int TezEffectsDemoCommand(TezArgs const& args, FILE* out, FILE* err)
{
    TezPictureArgs picture{"tez-effects.png", 1200, 1000};
    CLI::App cli("Draws the sample meshes with the GL effects side by side, off-screen.", "tez effects-demo");
    picture.AddOptions(cli, true);
    cli.footer(kAbout);
    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    picture.Finish();
    std::string const& output = picture.output;
    int const width = picture.width, height = picture.height;

    TezOffscreenGL gl(true, width, height);
    if (!gl.Ok()) {
        std::fprintf(err, "tez effects-demo: %s", gl.Problem().c_str());
        return 1;
    }
    int result = 1;
    TezHostApplication app(gl.GetContext(), gl.GetWindow());
    std::vector<TezRef<TezIndexedMesh>> const shapes = {
        TezIndexedMesh::CreateSphere(24, 48),
        TezIndexedMesh::CreateTorus(24, 48, 1.0f, 0.35f),
        TezIndexedMesh::CreateCylinder(48, 2, 0.8f, 0.25f, 1.6f),
        TezIndexedMesh::CreateArrow(24, 1.2f, 0.6f, 0.12f, 0.3f),
        TezIndexedMesh::CreateFlatRing(48, 1.0f, 0.6f, 0.3f),
        TezIndexedMesh::CreateFrame(1.0f, 0.65f, 0.3f),
    };
    std::vector<Row> const rows = {
        {TezDefaultEffect::StaticType(), GL_TRIANGLES},        {TezDefaultUnlitEffect::StaticType(), GL_TRIANGLES},
        {TezShinyLightEffect::StaticType(), GL_TRIANGLES},     {TezEffectTriangleMesh::StaticType(), GL_TRIANGLES},
        {TezCirclePointSpriteEffect::StaticType(), GL_POINTS},
    };
    TezVector4<float> const colours[] = {{0.85f, 0.45f, 0.2f, 1}, {0.25f, 0.55f, 0.85f, 1}, {0.3f, 0.7f, 0.35f, 1},
                                         {0.8f, 0.75f, 0.25f, 1}, {0.65f, 0.35f, 0.75f, 1}, {0.5f, 0.5f, 0.55f, 1}};

    TezRef<TezScene> scene = TezScene::Create();
    scene->AddChild(scene->GetRoot(), TezSceneBackground::Create());
    float const spacing = 1.25f;
    for (size_t r = 0; r < rows.size(); ++r) {
        for (size_t c = 0; c < shapes.size(); ++c) {
            TezRef<TezSceneMesh> object = TezSceneMesh::Create(shapes[c], rows[r].effect);
            object->SetDrawMode(rows[r].drawMode);
            object->SetColor(colours[c]);
            float const x = (static_cast<float>(c) - (shapes.size() - 1) * 0.5f) * spacing;
            float const y = ((rows.size() - 1) * 0.5f - static_cast<float>(r)) * spacing;
            object->SetTransform(Placement(shapes[c], x, y));
            scene->AddChild(scene->GetRoot(), object);
        }
    }
    // Up, left and in front: the shiny row shows its highlights off-centre.
    scene->GetLight()->SetPosition({-12.0f, 14.0f, 30.0f});
    if (TezRef<TezEffect> sprites = scene->GetEffect(TezCirclePointSpriteEffect::StaticType()))
        static_cast<TezPointSpriteEffect*>(sprites.Get())->SetPointSize(std::max(3.0f, width / 200.0f));

    TezRef<TezCameraView> camera = TezCameraView::Create();
    camera->Resize(width, height);
    camera->UsePerspective(true);
    camera->SetEye({0.0f, 0.0f, 30.0f});
    camera->SetFocus({0.0f, 0.0f, 0.0f});
    camera->SetUp({0.0f, 1.0f, 0.0f});
    float const halfWidth = shapes.size() * spacing * 0.5f + 0.2f;
    float const halfHeight = rows.size() * spacing * 0.5f + 0.2f;
    float const needed = std::max(halfHeight, halfWidth * height / static_cast<float>(width));
    camera->SetFov(2.0f * std::atan(needed / 30.0f) * 180.0f / static_cast<float>(M_PI));
    camera->SetNear(20.0f);
    camera->SetFar(40.0f);

    TezRef<TezFrameBuffer> frame = TezFrameBuffer::Create(width, height);
    if (frame->Build()) {
        frame->Bind();
        glViewport(0, 0, width, height);
        glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_LEQUAL);
        TezSceneDrawData data;
        data.SetCamera(camera);
        scene->Draw(data);
        glFinish();
        frame->Unbind();
        std::vector<unsigned char> pixels;
        TezImage image;
        if (frame->ReadPixels(0, pixels) &&
            image.CreateFromPixels(pixels.data(), width, height, 4, static_cast<size_t>(width) * 4, false) &&
            image.Save(output.c_str())) {
            std::fprintf(out, "%s: %dx%d, %zu shapes x %zu effects, %s\n", output.c_str(), width, height, shapes.size(),
                         rows.size(), TezOpenGLSupport::GetContextDescription().c_str());
            result = 0;
        } else {
            std::fprintf(err, "tez effects-demo: cannot write %s\n", output.c_str());
        }
    } else {
        std::fprintf(err, "tez effects-demo: the frame buffer is incomplete\n");
    }
    // GL objects go while the context is still current.
    scene = nullptr;
    frame = nullptr;
    return result;
}
