#include "tests/render/gl/GLViewTest.h"

#include "core/Archive.h"
#include "document/objects/DocCubeVolume.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/objects/SceneCubeVolume.h"
#include "render/objects/SceneVoxelOctree.h"
#include "render/scene/Scene.h"
#include "render/views/CudaRenderView.h"
#include "volume/Image.h"
#include "volume/ImageStack.h"
#include "volume/VoxelOctree.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr int kSlices = 32;

std::vector<unsigned char> FileBytes(std::string const& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

// A stack of 32 slices of 32 x 32 holding a bright cube over [8, 24)^3, seen
// from +z in a GPU render view.
class DocCubeVolumeTest : public GLViewTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        if (IsSkipped())
            return;
        std::string pattern = ::testing::TempDir() + "tezvolumeXXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        dir = name.data();
        for (int z = 0; z < kSlices; ++z) {
            std::vector<uint8_t> pixels(kSlices * kSlices, 0);
            for (int y = 8; y < 24 && z >= 8 && z < 24; ++y)
                for (int x = 8; x < 24; ++x)
                    pixels[y * kSlices + x] = 200;
            TezImage slice;
            char file[32];
            std::snprintf(file, sizeof file, "/s%02d.png", z);
            ASSERT_TRUE(slice.CreateFromPixels(pixels.data(), kSlices, kSlices, 1, kSlices, true) &&
                        slice.Save((dir + file).c_str()));
        }

        MakeView(kWidth, kHeight, {0.5f, 0.5f, 3.0f}, {0.5f, 0.5f, 0.5f}, 1.0f, 5.0f);
        ASSERT_TRUE(dynamic_cast<TezCudaRenderView*>(view.Get())) << "a GPU render view";
    }

    void TearDown() override
    {
        if (!dir.empty())
            std::system(("rm -rf '" + dir + "'").c_str());
        GLViewTest::TearDown();
    }

    // The frame of the view with only `volume` in its scene.
    std::vector<unsigned char> Picture(TezRef<TezDocCubeVolume> volume)
    {
        TezRef<TezScene> scene = view->GetScene();
        scene->RemoveAllChildren(scene->GetRoot());
        scene->AddChild(scene->GetRoot(), volume->GetSceneObject());
        std::vector<unsigned char> frame(size_t(kWidth) * kHeight * 3);
        EXPECT_TRUE(view->ExportImage(frame.data(), kWidth * 3));
        return frame;
    }

    std::string dir;
};

TEST_F(DocCubeVolumeTest, BuiltFromSlicesDrawnSavedAndOpenedWithTheSamePicture)
{
    TezRef<TezImageStack> stack = TezImageStack::Create((dir + "/s%02d.png").c_str(), 0, kSlices - 1);
    TezRef<TezDocCubeVolume> volume =
        TezDocCubeVolume::Create(stack, 1.0 / kSlices, 8, TezDocCubeVolume::VoxelOctreeType);
    ASSERT_TRUE(volume->GetVoxelOctree());
    EXPECT_EQ(TezDocCubeVolume::VoxelOctreeType, volume->GetVolumeType());
    EXPECT_EQ(TezVector3<int>(kSlices, kSlices, kSlices), volume->GetDimensionsInVoxels());
    EXPECT_EQ(256u, volume->GetHistogram().size());
    EXPECT_TRUE(volume->CanConvertVolumeType());
    TezRef<TezSceneObject> drawn = volume->GetSceneObject();
    ASSERT_TRUE(dynamic_cast<TezSceneVoxelOctree*>(drawn.Get()));
    volume->ConvertTo(TezDocCubeVolume::VoxelOctreeType);
    EXPECT_EQ(drawn, volume->GetSceneObject()) << "the present type: nothing happens";
    EXPECT_THROW(TezDocCubeVolume::Create(stack, 1.0, 8, 2), std::runtime_error);

    // The ends of a transfer function are pinned; one point changes nothing.
    volume->SetTransferFunction({{0.2f, 0}, {0.3f, 0}, {0.32f, 1}, {0.9f, 1}});
    volume->SetTransferFunction({{0.5f, 1}});
    std::vector<TezVector2<float>> const points = volume->GetTransferFunction();
    ASSERT_EQ(4u, points.size());
    EXPECT_EQ(0.0f, points.front().x);
    EXPECT_EQ(1.0f, points.back().x);
    drawn->SetColor({1.0f, 0.5f, 0.25f, 1.0f});

    std::vector<unsigned char> const before = Picture(volume);
    // The cube is in the picture: its centre pixel is lit, a corner is not
    // (rows of blue, green, red, top first).
    size_t const centre = (size_t(kHeight / 2) * kWidth + kWidth / 2) * 3;
    EXPECT_GT(before[centre + 2], 100);
    EXPECT_EQ(0, before[0] + before[1] + before[2]);

    // Hidden: nothing drawn.
    volume->SetVisible(false);
    EXPECT_FALSE(volume->GetVisible());
    EXPECT_EQ(0, Picture(volume)[centre + 2]);
    volume->SetVisible(true);

    std::string const path = dir + "/volume.arc";
    {
        TezRef<TezArchive> out = TezArchive::Open(path.c_str(), TezArchive::Write);
        out->WriteObject("object", volume);
        volume->Save(out);
        out->Flush();
    }
    TezRef<TezArchive> in = TezArchive::Open(path.c_str(), TezArchive::Read);
    ASSERT_STREQ("object", in->ReadTag().c_str());
    TezRef<TezDocCubeVolume> opened(dynamic_cast<TezDocCubeVolume*>(in->ReadObject().Get()));
    ASSERT_TRUE(opened);
    opened->Load(in);
    ASSERT_TRUE(opened->GetVoxelOctree());
    EXPECT_EQ(volume->GetHistogram(), opened->GetHistogram());
    EXPECT_EQ(points, opened->GetTransferFunction());
    EXPECT_EQ(volume->GetVoxelSize(), opened->GetVoxelSize());
    EXPECT_EQ(volume->GetSceneObject()->GetColor(), opened->GetSceneObject()->GetColor());
    EXPECT_TRUE(opened->GetVisible());
    EXPECT_EQ(before, Picture(opened));

    // Saved again, the same bytes but for the records naming the objects.
    std::string const again = dir + "/again.arc";
    {
        TezRef<TezArchive> out = TezArchive::Open(again.c_str(), TezArchive::Write);
        out->WriteObject("object", opened);
        opened->Save(out);
        out->Flush();
    }
    EXPECT_EQ(FileBytes(path).size(), FileBytes(again).size());
}

TEST_F(DocCubeVolumeTest, VolumeWithoutASourceHasNothingToDraw)
{
    // An archive holding neither octree nor cube volume opens without a
    // scene object.
    TezRef<TezVoxelOctree> none;
    EXPECT_THROW(TezDocCubeVolume::Create(none), std::runtime_error);
    std::string const path = dir + "/empty.arc";
    TezRef<TezDocCubeVolume> empty = TezDocCubeVolume::Create(
        TezImageStack::Create((dir + "/missing%02d.png").c_str(), 0, 3), 1.0, 8, TezDocCubeVolume::VoxelOctreeType);
    EXPECT_FALSE(empty->GetSceneObject());
    EXPECT_FALSE(empty->CanConvertVolumeType());
    EXPECT_EQ(TezVector3<float>(0, 0, 0), empty->GetDimensions());
    {
        TezRef<TezArchive> out = TezArchive::Open(path.c_str(), TezArchive::Write);
        empty->Save(out);
        out->Flush();
    }
    TezRef<TezDocCubeVolume> opened =
        TezRef<TezDocCubeVolume>(dynamic_cast<TezDocCubeVolume*>(TezDocCubeVolume::CreateAsTypified().Get()));
    opened->Load(TezArchive::Open(path.c_str(), TezArchive::Read));
    EXPECT_FALSE(opened->GetSceneObject());
    EXPECT_FALSE(opened->GetVisible());
}

// The same stack as a cube volume: stacked textured slices in GL, then
// converted to the octree, which takes the slices' place in the scene with
// their transform and looks.
TEST_F(DocCubeVolumeTest, CubeVolumeDrawsAsSlicesAndConvertsToTheOctree)
{
    TezRef<TezImageStack> stack = TezImageStack::Create((dir + "/s%02d.png").c_str(), 0, kSlices - 1);
    TezRef<TezDocCubeVolume> volume =
        TezDocCubeVolume::Create(stack, 1.0 / kSlices, 8, TezDocCubeVolume::CubeVolumeType);
    ASSERT_TRUE(volume->GetCubeVolume());
    EXPECT_FALSE(volume->GetVoxelOctree());
    EXPECT_EQ(TezDocCubeVolume::CubeVolumeType, volume->GetVolumeType());
    EXPECT_EQ(TezVector3<int>(kSlices, kSlices, kSlices), volume->GetDimensionsInVoxels());
    // The histogram: 16^3 of 32^3 voxels hold 200, the rest 0.
    ASSERT_EQ(256u, volume->GetHistogram().size());
    EXPECT_FLOAT_EQ(0.125f, volume->GetHistogram()[200]);
    EXPECT_FLOAT_EQ(0.875f, volume->GetHistogram()[0]);
    TezRef<TezSceneObject> slices = volume->GetSceneObject();
    ASSERT_TRUE(dynamic_cast<TezSceneCubeVolume*>(slices.Get()));
    EXPECT_EQ(static_cast<TezDocumentObject*>(volume.Get()), slices->GetDocumentObject());
    EXPECT_EQ(TezVector3<float>(1, 1, 1), slices->GetObjectBounds().GetMaximum());
    slices->SetColor({1.0f, 0.5f, 0.25f, 1.0f});

    std::vector<unsigned char> const drawn = Picture(volume);
    size_t const centre = (size_t(kHeight / 2) * kWidth + kWidth / 2) * 3;
    EXPECT_GT(drawn[centre + 2], 100) << "the cube shows in the middle (red channel)";
    EXPECT_LT(drawn[centre + 0], drawn[centre + 2]) << "in its own colour";
    EXPECT_EQ(0, drawn[0] + drawn[1] + drawn[2]) << "and not in the corner";
    // Transparent everywhere: the slices draw nothing.
    volume->SetTransferFunction({{0, 0}, {1, 0}});
    EXPECT_EQ(0, Picture(volume)[centre + 2]);
    volume->SetTransferFunction({{0, 0}, {0.5f, 0}, {0.6f, 1}, {1, 1}});

    TezRef<TezScene> scene = view->GetScene();
    scene->RemoveAllChildren(scene->GetRoot());
    scene->AddChild(scene->GetRoot(), slices);
    TezMatrix44<float> const moved = TezTranslationTransform<float>({0.01f, 0.0f, 0.0f});
    slices->SetTransform(moved);
    volume->ConvertTo(TezDocCubeVolume::VoxelOctreeType);
    ASSERT_TRUE(volume->GetVoxelOctree());
    EXPECT_FALSE(volume->GetCubeVolume());
    TezRef<TezSceneObject> cast = volume->GetSceneObject();
    ASSERT_TRUE(dynamic_cast<TezSceneVoxelOctree*>(cast.Get()));
    EXPECT_EQ(1, scene->GetRoot()->GetNumChildren());
    EXPECT_EQ(cast, scene->GetRoot()->GetChild(0)) << "in the old object's place";
    EXPECT_EQ(moved, cast->GetTransform());
    EXPECT_EQ(slices->GetColor(), cast->GetColor());
    EXPECT_THROW(volume->ConvertTo(5), std::runtime_error);
    std::vector<unsigned char> frame(size_t(kWidth) * kHeight * 3);
    ASSERT_TRUE(view->ExportImage(frame.data(), kWidth * 3));
    EXPECT_GT(frame[centre + 2], 100) << "the octree shows the same cube";
}
