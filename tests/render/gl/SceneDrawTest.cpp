#include "math/IdColor.h"
#include "tests/render/gl/GLTestContext.h"

#include "core/Logger.h"
#include "core/ResourceManager.h"
#include "document/Selection.h"
#include "mesh/IndexedMesh.h"
#include "render/CameraView.h"
#include "render/effects/DefaultEffects.h"
#include "render/gl/FrameBuffer.h"
#include "render/objects/SceneBackground.h"
#include "render/objects/SceneMesh.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"

#include <GL/glew.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

// Effects of the tests themselves: one whose vertex shader file is missing,
// and one whose program has no "modelMatrix".
class MissingShaderEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(MissingShaderEffect)
protected:
    MissingShaderEffect() : TezDefaultEffectImpl("vNoSuchFile.glsl", "fDefaultUnlit.glsl", "fDefaultUnlit.glsl", true)
    {
    }
};
TEZ_TYPIFIED_IMPL(MissingShaderEffect, "Test Missing Shader Effect")

class NoModelMatrixEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(NoModelMatrixEffect)
protected:
    NoModelMatrixEffect() : TezDefaultEffectImpl("vTestNoModel.glsl", "fDefaultUnlit.glsl", "fDefaultUnlit.glsl", true)
    {
    }
};
TEZ_TYPIFIED_IMPL(NoModelMatrixEffect, "Test No Model Matrix Effect")

// The cube -0.5..0.5 with one normal per face.
TezRef<TezIndexedMesh> UnitCube()
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    for (int axis = 0; axis < 3; ++axis) {
        for (float side : {-1.0f, 1.0f}) {
            TezVector3<float> n(0, 0, 0), u(0, 0, 0), v(0, 0, 0);
            n[axis] = side;
            u[(axis + 1) % 3] = 1.0f;
            v[(axis + 2) % 3] = 1.0f;
            unsigned const base = static_cast<unsigned>(mesh->GetNumVertices());
            for (int k = 0; k < 4; ++k) {
                float const su = (k & 1) ? 0.5f : -0.5f, sv = (k & 2) ? 0.5f : -0.5f;
                mesh->AddVertex(TezMeshVertex(n * 0.5f + u * su + v * sv, n));
            }
            mesh->AddTriangle(TezMeshTriangle(base, base + 1, base + 3));
            mesh->AddTriangle(TezMeshTriangle(base, base + 3, base + 2));
        }
    }
    return mesh;
}

struct Frame
{
    int width = 64, height = 64;
    std::vector<unsigned char> rgba;
    // Pixel (x, y), y counting up from the bottom.
    TezVector4<int> At(int x, int y) const
    {
        size_t const i = (static_cast<size_t>(y) * width + x) * 4;
        return TezVector4<int>(rgba[i], rgba[i + 1], rgba[i + 2], rgba[i + 3]);
    }
};

class SceneDrawTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        if (IsSkipped())
            return;
        scene = TezScene::Create();
        camera = TezCameraView::Create();
        camera->Resize(64, 64);
        camera->SetEye({0, 0, 5});
        camera->SetFocus({0, 0, 0});
        camera->SetUp({0, 1, 0});
        camera->SetFov(30.0f);
        camera->SetNear(1.0f);
        camera->SetFar(20.0f);
        camera->UsePerspective(true);
    }
    void TearDown() override
    {
        TezLogger::SetConsoleLevel(m_consoleLevel);
        scene = nullptr;
        GLTest::TearDown();
    }

    TezRef<TezSceneMesh> AddCube(uint32_t effect, TezVector4<float> color, TezMatrix44<float> transform)
    {
        TezRef<TezSceneMesh> cube = TezSceneMesh::Create(UnitCube(), effect);
        cube->SetColor(color);
        cube->SetTransform(transform);
        scene->AddChild(scene->GetRoot(), cube);
        return cube;
    }

    Frame Render(TezSceneDrawData data, TezVector4<float> clear = {0, 0, 0, 0})
    {
        Frame frame;
        TezRef<TezFrameBuffer> buffer = TezFrameBuffer::Create(frame.width, frame.height);
        EXPECT_TRUE(buffer->Build());
        buffer->Bind();
        glViewport(0, 0, frame.width, frame.height);
        glClearColor(clear.x, clear.y, clear.z, clear.w);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_LESS);
        data.SetCamera(camera);
        scene->Draw(data);
        glDisable(GL_DEPTH_TEST);
        buffer->Unbind();
        buffer->ReadPixels(0, frame.rgba);
        return frame;
    }

    static TezVector4<int> Bytes(TezVector4<float> c, float shade = 1.0f)
    {
        auto b = [](float v) { return static_cast<int>(std::lround(std::min(v, 1.0f) * 255.0f)); };
        return TezVector4<int>(b(c.x * shade), b(c.y * shade), b(c.z * shade), b(c.w));
    }

    static void ExpectNear(TezVector4<int> expected, TezVector4<int> actual, int tolerance, char const* what)
    {
        for (int i = 0; i < 4; ++i)
            EXPECT_NEAR(expected[i], actual[i], tolerance)
                << what << ": (" << actual.x << ", " << actual.y << ", " << actual.z << ", " << actual.w << ")";
    }

    TezRef<TezScene> scene;
    TezRef<TezCameraView> camera;
    int m_consoleLevel = TezLogger::GetConsoleLevel();
};

TezVector4<float> const kColor(0.2f, 0.4f, 0.6f, 1.0f);
TezMatrix44<float> const kIdentity = TezIdentityTransform<float>();

// Facing the camera: the unlit colour exactly, the lit one equal to it at the
// centre (the face looks straight at the head light), the shiny one with
// its highlight added; the cube's edge is where the perspective puts it.
TEST_F(SceneDrawTest, UnitCubeFacingTheCameraWithTheThreeDefaultEffects)
{
    // The cube's half size 0.5 at distance 4.5 under a 30 degree view of 64
    // pixels: 0.5 / (4.5 tan 15deg) x 32 = 13.3 pixels from the centre.
    struct Case
    {
        uint32_t effect;
        TezVector4<int> centre;
        int tolerance;
    } const cases[] = {
        {TezDefaultUnlitEffect::StaticType(), Bytes(kColor), 0},
        {TezDefaultEffect::StaticType(), Bytes(kColor), 1},
        {TezShinyLightEffect::StaticType(), Bytes(TezVector4<float>(0.9f, 1.0f, 1.0f, 1.0f)), 2},
    };
    for (Case const& c : cases) {
        scene = TezScene::Create();
        AddCube(c.effect, kColor, kIdentity);
        Frame const frame = Render(TezSceneDrawData(), {1, 1, 1, 1});
        ExpectNear(c.centre, frame.At(32, 32), c.tolerance, "centre");
        for (TezVector4<int> const inside : {frame.At(32 + 12, 32), frame.At(32, 32 - 13)}) {
            if (c.effect != TezShinyLightEffect::StaticType()) {
                ExpectNear(c.centre, inside, c.tolerance + 2, "inside the silhouette");
            } else {
                // Off the centre the highlight fades towards the diffuse colour.
                EXPECT_GT(inside.x, Bytes(kColor).x);
                EXPECT_LE(inside.x, c.centre.x);
            }
        }
        EXPECT_EQ(TezVector4<int>(255, 255, 255, 255), frame.At(32 + 15, 32)) << "outside";
        EXPECT_EQ(TezVector4<int>(255, 255, 255, 255), frame.At(32, 32 + 15)) << "outside";
        EXPECT_EQ(TezVector4<int>(255, 255, 255, 255), frame.At(1, 1)) << "background";
    }
}

// Turned 45 degrees, the faces lean away from the head light: the lit
// effect darkens them to about 0.3 + 0.7 cos 45, the unlit one does not,
// and the shiny one keeps only its diffuse part.
TEST_F(SceneDrawTest, TurnedCubeShadesItsFaces)
{
    TezMatrix44<float> const turn = TezRotationAboutY<float>(static_cast<float>(M_PI / 4));
    TezRef<TezSceneMesh> cube = AddCube(TezDefaultEffect::StaticType(), kColor, turn);
    TezVector4<int> const lit = Render(TezSceneDrawData()).At(38, 32);
    // The lists are keyed by the effect type: change it while detached.
    scene->RemoveChild(cube);
    cube->SetEffectType(TezDefaultUnlitEffect::StaticType());
    scene->AddChild(scene->GetRoot(), cube);
    TezVector4<int> const unlit = Render(TezSceneDrawData()).At(38, 32);
    scene->RemoveChild(cube);
    cube->SetEffectType(TezShinyLightEffect::StaticType());
    scene->AddChild(scene->GetRoot(), cube);
    TezVector4<int> const shiny = Render(TezSceneDrawData()).At(38, 32);

    ExpectNear(Bytes(kColor), unlit, 0, "unlit");
    for (int i = 0; i < 3; ++i) {
        // The face leans about 45 degrees (a little more, seen off-axis).
        float const facing = (lit[i] / static_cast<float>(unlit[i]) - 0.3f) / 0.7f;
        EXPECT_GT(facing, 0.6f) << "lit channel " << i;
        EXPECT_LT(facing, 0.75f) << "lit channel " << i;
        // Diffuse alone under the same head light; the highlight is gone.
        EXPECT_NEAR(facing, shiny[i] / static_cast<float>(unlit[i]), 0.03f) << "shiny channel " << i;
    }
}

// The mapping pass writes each mappable object's id colour bit for bit,
// selected or not, and nothing for the others.
TEST_F(SceneDrawTest, MappingWritesExactIdColours)
{
    TezRef<TezSceneMesh> left =
        AddCube(TezDefaultEffect::StaticType(), kColor, TezTranslationTransform<float>({-1, 0, 0}));
    TezRef<TezSceneMesh> right =
        AddCube(TezDefaultUnlitEffect::StaticType(), kColor, TezTranslationTransform<float>({1, 0, 0}));
    TezRef<TezSceneMesh> middle =
        AddCube(TezDefaultEffect::StaticType(), kColor, TezTranslationTransform<float>({0, 0, -3}));
    left->SetProperty(TezSceneObject::Mappable, true);
    right->SetProperty(TezSceneObject::Mappable, true);
    TezRef<TezSelection> selection = TezSelection::Create();
    selection->AddObject(right);

    TezSceneDrawData data;
    data.SetMapping();
    Frame const frame = Render(data);
    auto id = [&frame](int x, int y) {
        TezVector4<int> const p = frame.At(x, y);
        return TezIdFromColor(
            TezVector4<unsigned char>(static_cast<unsigned char>(p.x), static_cast<unsigned char>(p.y),
                                      static_cast<unsigned char>(p.z), static_cast<unsigned char>(p.w)));
    };
    // x = +-1 at distance 4.5 lands 1 / (4.5 tan 15deg) x 32 = 26.5 pixels out.
    EXPECT_EQ(left->Id(), id(32 - 26, 32));
    EXPECT_EQ(right->Id(), id(32 + 26, 32));
    EXPECT_EQ(0u, id(32, 32)); // the unmappable cube behind
    EXPECT_EQ(0u, id(2, 2));

    // The plain pass shows the selection colour instead.
    ExpectNear(Bytes(TezVector4<float>(0.92f, 0, 0, 1)), Render(TezSceneDrawData()).At(32 + 26, 32), 1, "selected");
    selection->RemoveAll();
}

// A flag narrows a pass to the objects that carry it; plain passes draw all.
TEST_F(SceneDrawTest, TransparentAndOverlayPassesDrawOnlyTheirObjects)
{
    TezRef<TezSceneMesh> cube = AddCube(TezDefaultUnlitEffect::StaticType(), kColor, kIdentity);
    TezSceneDrawData transparent;
    transparent.SetTransparent();
    EXPECT_EQ(TezVector4<int>(0, 0, 0, 0), Render(transparent).At(32, 32));
    cube->SetProperty(TezSceneObject::Transparent, true);
    EXPECT_EQ(Bytes(kColor), Render(transparent).At(32, 32));
    TezSceneDrawData overlay;
    overlay.SetOverlay();
    EXPECT_EQ(TezVector4<int>(0, 0, 0, 0), Render(overlay).At(32, 32));
    EXPECT_EQ(Bytes(kColor), Render(TezSceneDrawData()).At(32, 32));
    cube->SetProperty(TezSceneObject::Visible, false);
    EXPECT_EQ(TezVector4<int>(0, 0, 0, 0), Render(TezSceneDrawData()).At(32, 32));
}

// Built on its first draw, not before, and again only after a change.
TEST_F(SceneDrawTest, ObjectsBuildOnTheirFirstDrawAndAfterAChange)
{
    TezRef<TezSceneMesh> cube = AddCube(TezDefaultEffect::StaticType(), kColor, kIdentity);
    EXPECT_EQ(0, cube->GetBuildCount());
    Render(TezSceneDrawData());
    Render(TezSceneDrawData());
    EXPECT_EQ(1, cube->GetBuildCount());
    EXPECT_FALSE(cube->GetProperty(TezSceneObject::NeedsBuild));
    cube->SetMesh(UnitCube());
    EXPECT_EQ(1, cube->GetBuildCount());
    Render(TezSceneDrawData());
    EXPECT_EQ(2, cube->GetBuildCount());
}

// A broken effect costs its own objects their shading and one log line per
// frame; everything else draws, nothing crashes.
TEST_F(SceneDrawTest, MissingShaderFileLogsOncePerFrameAndOthersStillDraw)
{
    AddCube(MissingShaderEffect::StaticType(), kColor, TezTranslationTransform<float>({-1, 0, 0}));
    AddCube(TezDefaultUnlitEffect::StaticType(), kColor, TezTranslationTransform<float>({1, 0, 0}));
    TezLogger::SetConsoleLevel(TezLogger::Error);
    ::testing::internal::CaptureStdout();
    Render(TezSceneDrawData());
    Frame const frame = Render(TezSceneDrawData());
    std::string const log = ::testing::internal::GetCapturedStdout();
    std::string const line = "Missing shader file with path: ";
    size_t count = 0;
    for (size_t at = log.find(line); at != std::string::npos; at = log.find(line, at + 1))
        ++count;
    EXPECT_EQ(2u, count) << log;
    EXPECT_NE(std::string::npos, log.find("vNoSuchFile.glsl\n")) << log;
    EXPECT_EQ(Bytes(kColor), frame.At(32 + 26, 32));
    EXPECT_EQ(0u, scene->GetEffect(MissingShaderEffect::StaticType())->GetProgramId());
}

// A program that declares no "modelMatrix" still draws: the write is
// skipped, and the object shows where its vertices put it.
TEST_F(SceneDrawTest, ProgramWithoutModelMatrixStillDraws)
{
    namespace fs = std::filesystem;
    fs::path const root = fs::path(testing::TempDir()) / "tez-no-model";
    fs::create_directories(root / "media/shaders/vertex");
    fs::create_directories(root / "media/shaders/fragment");
    std::ofstream(root / "media/shaders/vertex/vTestNoModel.glsl")
        << "#version 430 core\nuniform mat4 projectionMatrix;\nuniform mat4 viewMatrix;\n"
           "layout(location = 0) in vec3 inPosition;\n"
           "void main() { gl_Position = projectionMatrix * viewMatrix * vec4(inPosition, 1.0); }\n";
    Render(TezSceneDrawData()); // the scene's own effects start from the real tree
    TezRef<TezResourceManager> resources = TezResourceManager::GetAppResourceManager();
    TezString const before = resources->GetResourcePath();
    fs::copy_file(std::string(before.c_str()) + "/media/shaders/fragment/fDefaultUnlit.glsl",
                  root / "media/shaders/fragment/fDefaultUnlit.glsl", fs::copy_options::overwrite_existing);
    resources->SetResourcePath(TezString(root.string().c_str()));

    // The transform would move the cube out of the view; without the
    // uniform it stays at the centre.
    AddCube(NoModelMatrixEffect::StaticType(), kColor, TezTranslationTransform<float>({100, 0, 0}));
    Frame const frame = Render(TezSceneDrawData());
    resources->SetResourcePath(before);
    TezRef<TezEffect> effect = scene->GetEffect(NoModelMatrixEffect::StaticType());
    ASSERT_TRUE(effect);
    EXPECT_NE(0u, effect->GetProgramId());
    EXPECT_EQ(-1, glGetUniformLocation(effect->GetProgramId(), "modelMatrix"));
    EXPECT_EQ(Bytes(kColor), frame.At(32, 32));
}

// The document's background: a gradient lighter at the top, drawn first and
// without depth, so that what follows covers it.
TEST_F(SceneDrawTest, BackgroundGradientSitsBehindEverything)
{
    scene->AddChild(scene->GetRoot(), TezSceneBackground::Create());
    AddCube(TezDefaultUnlitEffect::StaticType(), kColor, kIdentity);
    Frame const frame = Render(TezSceneDrawData());
    TezVector4<int> const top = frame.At(2, 62), bottom = frame.At(2, 1);
    EXPECT_GT(top.x + top.y + top.z, bottom.x + bottom.y + bottom.z + 60);
    EXPECT_EQ(255, top.w);
    EXPECT_EQ(Bytes(kColor), frame.At(32, 32));
}

} // namespace
