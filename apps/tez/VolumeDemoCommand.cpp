// tez volume-demo: a volume document object and a GL mesh in one frame of an
// off-screen GPU render view. The octree is cast by the kernels' host loops
// and merged into the GL frame by depth, so the sphere half inside the ball
// shows where it is nearer and hides where the ball is.

#include "document/objects/CmdUpdateTransferFunction.h"
#include "document/objects/DocCubeVolume.h"
#include "mesh/IndexedMesh.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/effects/DefaultEffects.h"
#include "render/gl/OpenGLSupport.h"
#include "render/objects/SceneMesh.h"
#include "render/scene/Light.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/OffscreenGL.h"
#include "volume/MemoryVolume.h"
#include "volume/VoxelOctree.h"

#include <string>
#include <sys/stat.h>
#include <vector>

namespace {
char const* const kAbout = "A 64^3 ball with a denser core, held by a volume document object and cast\n"
                           "into a GPU render view, beside a GL mesh sphere half inside it: each hides\n"
                           "the other where it is nearer. The view's buffers are host arrays filled by\n"
                           "the ray caster's host loops, merged into the GL frame by depth.\n";

constexpr int kEdge = 64;

// A ball of radius 24 voxels: 120 in the shell, 220 in the core.
TezRef<TezVoxelOctree> Ball()
{
    std::vector<uint8_t> voxels(size_t(kEdge) * kEdge * kEdge, 0);
    for (int z = 0; z < kEdge; ++z)
        for (int y = 0; y < kEdge; ++y)
            for (int x = 0; x < kEdge; ++x) {
                float const dx = x + 0.5f - 32.0f, dy = y + 0.5f - 32.0f, dz = z + 0.5f - 32.0f;
                float const r2 = dx * dx + dy * dy + dz * dz;
                voxels[(size_t(z) * kEdge + y) * kEdge + x] = r2 <= 144.0f ? 220 : r2 <= 576.0f ? 120 : 0;
            }
    return TezVoxelOctree::CreateFromVolumeData("ball", TezMemoryVolume::Create8(kEdge, kEdge, kEdge, voxels),
                                                1.0 / kEdge, 8, 64);
}

} // namespace

int TezVolumeDemoCommand(TezArgs const& args, FILE* out, FILE* err)
{
    TezPictureArgs picture{"tez-volume.png", 800, 600};
    CLI::App cli("Merges a volume document object and a GL mesh sphere by depth in an off-screen GPU render view.",
                 "tez volume-demo");
    picture.AddOptions(cli, false);
    cli.footer(kAbout);
    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    picture.Finish();
    std::string const& output = picture.output;
    int const width = picture.width, height = picture.height;

    TezOffscreenGL gl;
    if (!gl.Ok()) {
        std::fprintf(err, "tez volume-demo: %s", gl.Problem().c_str());
        return 1;
    }
    int result = 1;
    TezHostApplication app(gl.GetContext(), gl.GetWindow());
    TezRef<TezRenderViewManager> manager = TezRenderViewManager::GetAppRenderViewManager();
    TezRef<TezRenderView> view = manager ? manager->CreateOffScreenCuda(width, height) : nullptr;
    if (!view) {
        std::fprintf(err, "tez volume-demo: no off-screen view of %dx%d can be made\n", width, height);
    } else {
        TezRef<TezScene> scene = view->GetScene();
        TezRef<TezDocCubeVolume> volume = TezDocCubeVolume::Create(Ball());
        // Opaque from the shell's value up, through the undoable command
        // a host would run.
        TezCmdUpdateTransferFunction::Create(volume, {{0, 0}, {0.4f, 0}, {0.45f, 1}, {1, 1}})->Execute();
        volume->GetSceneObject()->SetColor({0.95f, 0.7f, 0.35f, 1.0f});
        scene->AddChild(scene->GetRoot(), volume->GetSceneObject());

        TezRef<TezSceneMesh> sphere =
            TezSceneMesh::Create(TezIndexedMesh::CreateSphere(24, 48), TezDefaultEffect::StaticType());
        sphere->SetColor({0.3f, 0.55f, 0.95f, 1.0f});
        sphere->SetTransform(TezTranslationTransform<float>({0.85f, 0.6f, 0.55f}) * TezScaleTransform<float>(0.2f));
        scene->AddChild(scene->GetRoot(), sphere);
        scene->GetLight()->SetPosition({-2.0f, 3.0f, 6.0f});

        view->SetBackgroundColor({0.12f, 0.12f, 0.14f, 1.0f});
        TezRef<TezCameraView> camera = view->GetCamera();
        camera->UsePerspective(true);
        camera->SetFov(30.0f);
        camera->FrameBox(view->GetBounds(false), {0.4f, 0.6f, 3.0f}, {0.5f, 0.5f, 0.5f}, {0.0f, 1.0f, 0.0f}, 0.05f);

        view->ExportImageToFile(TezString(output.c_str()));
        struct stat info;
        if (stat(output.c_str(), &info) == 0 && info.st_size > 0) {
            view->ActivateContext();
            std::fprintf(out, "%s: %dx%d, a %d^3 volume and a mesh sphere merged by depth, %s\n", output.c_str(), width,
                         height, kEdge, TezOpenGLSupport::GetContextDescription().c_str());
            result = 0;
        } else {
            std::fprintf(err, "tez volume-demo: cannot write %s\n", output.c_str());
        }
        view->ActivateContext();
        sphere = nullptr;
        volume = nullptr;
        scene = nullptr;
        view->SetScene(nullptr);
        manager->ReleaseRenderView(view);
        view = nullptr;
    }
    manager = nullptr;
    gl.MakeCurrent();
    return result;
}
