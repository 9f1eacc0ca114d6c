// A trimmed face drawn through its trim texture: the plane under the patch
// sample is much larger than the patch, and only the part inside the trim
// loop may reach the picture.
#include "tests/render/gl/GLTestContext.h"

#include "mesh/brep/BrepRhino.h"
#include "render/CameraView.h"
#include "render/gl/FrameBuffer.h"
#include "render/objects/SceneBrepFace.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"

#include <GL/glew.h>

#include <cmath>

namespace {

constexpr int kSize = 256;

class SceneBrepFaceTest : public GLTest
{
};

double LoopArea(TezBrepLoop const& loop)
{
    double area = 0;
    for (size_t i = 0, n = loop.points.size(); i < n; ++i) {
        TezVector3<float> const& a = loop.points[i];
        TezVector3<float> const& b = loop.points[(i + 1) % n];
        area += 0.5 * (a.x * b.y - b.x * a.y);
    }
    return std::abs(area);
}

} // namespace

TEST_F(SceneBrepFaceTest, OnlyTheTrimmedRegionIsDrawn)
{
    TezRef<TezBrepRhino> brep = TezBrepRhino::CreateFromBytes(TezBrepRhino::MakeSampleFile("patch", 0));
    ASSERT_TRUE(brep) << TezBrepRhino::GetLastError().c_str();
    std::vector<TezRef<TezBrepFace>> faces;
    brep->MakeFaceList(faces);
    ASSERT_EQ(faces.size(), 1u);
    std::vector<TezBrepLoop> loops;
    faces[0]->TessellateLoops(loops);
    ASSERT_EQ(loops.size(), 1u);
    double const loopArea = LoopArea(loops[0]);
    int nu = 0, nv = 0;
    std::vector<TezBrepFacePoint> grid;
    faces[0]->MakeSurfaceGrid(nu, nv, grid);
    TezBox3<float> plane;
    for (TezBrepFacePoint const& p : grid)
        plane += p.position;
    TezVector3<float> const extent = plane.GetMaximum() - plane.GetMinimum();
    ASSERT_GT(extent.x * extent.y, 1.3 * loopArea) << "the untrimmed plane must show if the trim fails";

    TezRef<TezScene> scene = TezScene::Create();
    TezRef<TezSceneBrepFace> object = TezSceneBrepFace::Create(faces[0]);
    object->SetColor({1, 1, 1, 1});
    scene->AddChild(scene->GetRoot(), object);

    // Straight down onto z = 0 from height 20, with a view 12 units across.
    float const height = 20.0f, half = 6.0f;
    TezRef<TezCameraView> camera = TezCameraView::Create();
    camera->Resize(kSize, kSize);
    camera->UsePerspective(true);
    camera->SetEye({0, 0, height});
    camera->SetFocus({0, 0, 0});
    camera->SetUp({0, 1, 0});
    camera->SetFov(2.0f * std::atan(half / height) * 180.0f / 3.14159265f);
    camera->SetNear(10.0f);
    camera->SetFar(30.0f);

    TezRef<TezFrameBuffer> buffer = TezFrameBuffer::Create(kSize, kSize);
    ASSERT_TRUE(buffer->Build());
    buffer->Bind();
    glViewport(0, 0, kSize, kSize);
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    TezSceneDrawData data;
    data.SetCamera(camera);
    scene->Draw(data);
    glDisable(GL_DEPTH_TEST);
    buffer->Unbind();
    std::vector<unsigned char> rgba;
    ASSERT_TRUE(buffer->ReadPixels(0, rgba));

    int drawn = 0;
    for (size_t i = 0; i < rgba.size(); i += 4)
        if (rgba[i] + rgba[i + 1] + rgba[i + 2] > 30)
            ++drawn;
    double const expected = loopArea / (4.0 * half * half) * kSize * kSize;
    EXPECT_NEAR(drawn, expected, expected * 0.04);
    // The middle of the patch is drawn, the corners of the plane are not.
    size_t const middle = (static_cast<size_t>(kSize / 2) * kSize + kSize / 2) * 4;
    EXPECT_GT(rgba[middle], 60);

    scene = nullptr;
    object = nullptr;
}
