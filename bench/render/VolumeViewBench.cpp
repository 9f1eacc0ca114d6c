// The GPU render view on host buffers, 1024x768: whole frames (Paint and
// glFinish) of a view holding the CT-like phantom as a voxel octree scene
// object, solid and layered, next to the bare ray cast of the same frame
// into plain host buffers. The difference is what the view adds: clearing
// the layers, the upload of image and depth to the two integer textures,
// the depth-writing quad, the blend of the layers (layered only), the swap.
// Without a GPU the kernels run as host loops and GL is Mesa's llvmpipe; on
// a GPU both sides use device buffers (the view's device backing).

#include "BenchGL.h"
#include "core/Application.h"
#include "platform/DeviceBuffer.h"
#include "platform/DeviceMemory.h"
#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/OctreeCamera.h"
#include "render/RenderViewManager.h"
#include "render/gl/OpenGLSupport.h"
#include "render/objects/SceneVoxelOctree.h"
#include "render/scene/Scene.h"
#include "render/views/CudaRenderView.h"
#include "volume/MemoryVolume.h"
#include "volume/TransferFunction.h"
#include "volume/VoxelOctree.h"
#include "volume/device/VoxelOctreeKernels.h"

#include "../volume/Phantom.h"

#include <benchmark/benchmark.h>

#include <GL/glew.h>

#include <memory>
#include <string>

namespace {

constexpr int kWidth = 1024;
constexpr int kHeight = 768;
constexpr int kSlices = 512;

// Opaque from the fat layer up (8-bit fat is about 57 of 255): the body's skin.
std::vector<TezVector2<float>> const kPoints = {{0, 0}, {0.2f, 0}, {0.21f, 1}, {1, 1}};

struct VolumeViewSetup
{
    bool ok = false;
    std::string reason;
    HWND window = nullptr;
    HGLRC context = nullptr;
    std::unique_ptr<TezBenchApplication> app;
    TezRef<TezCudaRenderView> view;
    TezRef<TezVoxelOctree> octree;
    TezRef<TezSceneVoxelOctree> object;
    std::vector<float> table;
};

VolumeViewSetup& Setup()
{
    static VolumeViewSetup setup = [] {
        VolumeViewSetup s;
        TezBenchGL const gl = TezMakeBenchGL(16, 16);
        s.window = gl.window;
        s.context = gl.context;
        if (!gl.ok) {
            s.reason = gl.reason;
            return s;
        }
        TezGLPlatform::MakeCurrent(nullptr, nullptr);
        s.app = std::make_unique<TezBenchApplication>(s.context, s.window);
        s.view = TezRef<TezCudaRenderView>(dynamic_cast<TezCudaRenderView*>(
            TezRenderViewManager::GetAppRenderViewManager()->CreateOffScreenCuda(kWidth, kHeight).Get()));
        if (!s.view) {
            s.reason = "no off-screen GPU render view";
            return s;
        }
        std::vector<uint8_t> voxels = tezbench::MakePhantom<uint8_t>(size_t(512) * 512 * kSlices);
        s.octree = TezVoxelOctree::CreateFromVolumeData(
            "phantom", TezMemoryVolume::Create8(512, 512, kSlices, std::move(voxels)), 1.0 / 512, 8, 512);
        if (!s.octree) {
            s.reason = "the phantom's octree did not build";
            return s;
        }
        s.object = TezSceneVoxelOctree::Create(s.octree);
        s.object->SetTransferFunction(kPoints);
        s.object->SetColor({1, 1, 1, 1});
        s.table = TezVolumeCreateTransferFunction(kPoints, 256);
        TezRef<TezScene> scene = s.view->GetScene();
        scene->AddChild(scene->GetRoot(), s.object);
        TezRef<TezCameraView> camera = s.view->GetCamera();
        camera->UsePerspective(true);
        camera->SetFov(30.0f);
        camera->FrameBox(s.view->GetBounds(false), {0.3f, 0.4f, 1.0f}, {0, 0, 0}, {0, 1, 0});
        s.view->Paint(); // node states and program builds are not part of a frame
        s.ok = true;
        return s;
    }();
    return setup;
}

void Frames(benchmark::State& state, bool transparent)
{
    VolumeViewSetup& s = Setup();
    if (!s.ok) {
        state.SkipWithError(s.reason.c_str());
        return;
    }
    s.object->SetProperty(TezSceneObject::Transparent, transparent);
    for (auto _ : state) {
        s.view->Paint();
        s.view->ActivateContext();
        glFinish();
        s.view->DeactivateContext();
    }
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

// The same cast with nothing around it: the scene object's source, camera,
// matrix and table, into host buffers of the view's size.
void BareCasts(benchmark::State& state, bool transparent)
{
    VolumeViewSetup& s = Setup();
    if (!s.ok) {
        state.SkipWithError(s.reason.c_str());
        return;
    }
    // The view's side: device memory where the kernels run on a GPU.
    bool const onDevice = s.view->IsOnDevice();
    TezOctreeRenderBuffers buffers(kWidth, kHeight, transparent ? 2 : 0, onDevice);
    TezDeviceBuffer table(s.table.size() * sizeof(float), 1, onDevice);
    table.Upload(s.table.data(), s.table.size() * sizeof(float));
    float const* tableData = static_cast<float const*>(table.Get());
    TezOctreeRenderSource source = TezMakeOctreeRenderSource(*s.octree);
    source.statesValid = true;
    source.looks =
        TezOctreeDevice::LookFaceShading | TezOctreeDevice::LookCutShading | TezOctreeDevice::LookTableOpacity;
    TezOctreeDevice::Camera const camera = TezMakeOctreeCamera(*s.view->GetCamera());
    float const edge = float(s.octree->GetTreeSize()) * s.octree->GetVoxelSize();
    TezMatrix44<float> const matrix = TezScaleTransform<float>(edge);
    for (auto _ : state) {
        if (transparent) {
            TezClearOctreeLayers(buffers.GetTarget());
            TezRenderOctreeTransparent(buffers.GetTarget(), source, camera, matrix, {1, 1, 1, 1}, tableData);
            TezBlendOctreeLayers(buffers.GetTarget(), camera);
        } else {
            TezRenderOctreeSolid(buffers.GetTarget(), source, camera, matrix, {1, 1, 1, 1}, tableData);
        }
        // Device launches are queued: a frame ends when they are done.
        TezDeviceSynchronize();
    }
    size_t hits = 0;
    for (uint32_t word : buffers.ReadDepth())
        hits += word != 0 && word != 0xFFFFFFFFu;
    state.counters["hit_fraction"] = double(hits) / (double(kWidth) * kHeight);
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_VolumeViewFrameSolid(benchmark::State& state) { Frames(state, false); }
void BM_VolumeBareCastSolid(benchmark::State& state) { BareCasts(state, false); }
void BM_VolumeViewFrameLayered(benchmark::State& state) { Frames(state, true); }
void BM_VolumeBareCastLayered(benchmark::State& state) { BareCasts(state, true); }
BENCHMARK(BM_VolumeViewFrameSolid)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_VolumeBareCastSolid)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_VolumeViewFrameLayered)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_VolumeBareCastLayered)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

} // namespace
