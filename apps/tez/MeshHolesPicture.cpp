#include "tez/MeshHolesPicture.h"

#include "core/Application.h"
#include "document/objects/DocIndexedMesh.h"
#include "mesh/TopologyMesh.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/objects/SceneIndexedMesh.h"
#include "render/scene/Light.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"
#include "tez/HostDocument.h"

#include <sys/stat.h>

namespace {

// Both meshes in one document: the filled copy moved to the right of the
// original by its width and a gap.
TezRef<TezHostDocument> HolesDocument(TezRef<TezIndexedMesh> before, TezRef<TezIndexedMesh> after)
{
    TezRef<TezHostDocument> document = TezHostDocument::Create();
    TezBox3<float> const box = before->ComputeBounds();
    TezRef<TezIndexedMesh> moved = after->Copy();
    float const shift = box.Empty() ? 0.0f : box.Extents().x * 1.2f + 1e-3f;
    moved->TransformGeometry(TezTranslationTransform<float>({shift, 0.0f, 0.0f}));
    for (TezRef<TezIndexedMesh> const& mesh : {before->Copy(), moved}) {
        TezRef<TezDocIndexedMesh> object = TezDocIndexedMesh::Create(TezTopologyMesh::Create(mesh));
        object->GetSceneObject()->SetMode(TezMeshModeFlatEdges);
        document->AddObject(object);
    }
    return document;
}

int Draw(TezRef<TezIndexedMesh> before, TezRef<TezIndexedMesh> after, std::string const& path, int width, int height,
         FILE* out, FILE* err)
{
    TezRef<TezRenderViewManager> manager = TezRenderViewManager::GetAppRenderViewManager();
    TezRef<TezRenderView> view = manager ? manager->CreateOffScreenCuda(width, height) : nullptr;
    if (!view) {
        std::fprintf(err, "tez mesh fill-holes: no off-screen view of %dx%d can be made\n", width, height);
        return 1;
    }
    TezRef<TezHostDocument> document = HolesDocument(before, after);
    view->SetBackgroundColor({0.08f, 0.08f, 0.1f, 1.0f});
    view->ActivateContext();
    view->SetScene(document->GetScene());
    view->DeactivateContext();
    TezRef<TezCameraView> camera = view->GetCamera();
    camera->UsePerspective(true);
    camera->SetFov(30.0f);
    TezBox3<float> const bounds = view->GetBounds(false);
    TezVector3<float> const centre = bounds.Center();
    float const depth = bounds.MaxLength() * 4.0f + 1.0f;
    camera->FrameBox(bounds, centre + TezVector3<float>(0.0f, -0.35f * depth, depth), centre, {0.0f, 1.0f, 0.0f},
                     0.04f);
    if (TezRef<TezLight> light = view->GetScene()->GetLight())
        light->SetPosition(centre + TezVector3<float>(-0.5f * depth, 0.5f * depth, depth));
    view->ExportImageToFile(TezString(path.c_str()));

    // GL objects go while the context is still current.
    view->ActivateContext();
    view->SetScene(nullptr);
    document->RemoveAllObjects();
    document = nullptr;
    manager->ReleaseRenderView(view);
    struct stat info;
    if (stat(path.c_str(), &info) != 0 || info.st_size == 0) {
        std::fprintf(err, "tez mesh fill-holes: cannot write %s\n", path.c_str());
        return 1;
    }
    std::fprintf(out, "picture: %s\n", path.c_str());
    return 0;
}

} // namespace

int TezWriteHolesPicture(TezRef<TezIndexedMesh> before, TezRef<TezIndexedMesh> after, std::string const& path,
                         int width, int height, FILE* out, FILE* err)
{
    if (!before || !after) {
        std::fprintf(err, "tez mesh fill-holes: no mesh to draw\n");
        return 1;
    }
    TezApplication* app = TezApplication::Instance();
    if (!app || !app->GetRenderContext()) {
        std::fprintf(err, "tez mesh fill-holes: no GL context to draw the picture with\n");
        return 1;
    }
    return Draw(before, after, path, width, height, out, err);
}
