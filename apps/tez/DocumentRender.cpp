#include "tez/DocumentRender.h"

#include "mesh/IndexedMesh.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/effects/DefaultEffects.h"
#include "render/objects/SceneBackground.h"
#include "render/objects/SceneMesh.h"
#include "render/objects/SceneRibbons.h"
#include "render/objects/SceneVoxelOctree.h"
#include "render/scene/Light.h"
#include "render/scene/Scene.h"
#include "render/views/CudaRenderView.h"
#include "tez/OutputFile.h"
#include "tez/TerminalUI.h"
#include "volume/Image.h"

#include <cerrno>
#include <cstring>
#include <exception>

// ---- the document ----

TezRef<TezDocCubeVolume> TezAddVolumeToDocument(TezRef<TezHostDocument> document, TezRef<TezVoxelOctree> octree)
{
    TezRef<TezDocCubeVolume> volume = TezDocCubeVolume::Create(octree);
    if (document)
        document->AddObject(volume);
    return volume;
}

namespace {

// Pictures of tez render share one flat background.
TezVector4<float> const kBackground(28.0f / 255.0f, 30.0f / 255.0f, 36.0f / 255.0f, 1.0f);
unsigned char const kBackgroundBytes[3] = {28, 30, 36};

std::vector<TezRef<TezDocCubeVolume>> Volumes(TezHostDocument const& document)
{
    std::vector<TezRef<TezDocCubeVolume>> volumes;
    for (TezRef<TezDocumentObject> const& object : document.GetObjects())
        if (auto* volume = dynamic_cast<TezDocCubeVolume*>(object.Get()))
            volumes.push_back(TezRef<TezDocCubeVolume>(volume));
    return volumes;
}

// The command line's looks on every volume of the document.
void ApplyOptions(std::vector<TezRef<TezDocCubeVolume>> const& volumes, TezDocumentRenderOptions const& o)
{
    for (TezRef<TezDocCubeVolume> const& volume : volumes) {
        if (o.points.size() >= 2)
            volume->SetTransferFunction(o.points);
        TezRef<TezSceneObject> object = volume->GetSceneObject();
        if (!object)
            continue;
        if (o.hasColour)
            object->SetColor(o.colour);
        object->SetProperty(TezSceneObject::Transparent, o.transparent);
        if (auto* octree = dynamic_cast<TezSceneVoxelOctree*>(object.Get())) {
            octree->SetShowXSection(o.hasCut);
            if (o.hasCut)
                octree->SetXSectionPlane(o.cut);
        }
    }
}

// The picture from the view, top row first, and the count of pixels that are
// not the background.
bool WritePicture(TezCudaRenderView& view, TezDocumentRenderOptions const& o, size_t& shown, FILE* err)
{
    size_t const stride = size_t(o.width) * 3;
    std::vector<unsigned char> rows(stride * size_t(o.height));
    if (!view.ExportImage(rows.data(), int(stride))) {
        std::fprintf(err, "tez render: the view could not be painted\n");
        return false;
    }
    // Ctrl-C during the casts: nothing is written.
    if (TezTerminalUI::StopRequested()) {
        std::fprintf(err, "tez render: stopped; nothing written\n");
        return false;
    }
    shown = 0;
    for (size_t i = 0; i < rows.size(); i += 3) {
        std::swap(rows[i], rows[i + 2]); // blue-green-red to red-green-blue
        if (rows[i] != kBackgroundBytes[0] || rows[i + 1] != kBackgroundBytes[1] || rows[i + 2] != kBackgroundBytes[2])
            ++shown;
    }
    TezImage picture;
    TezOutputFile file(o.output);
    if (!picture.CreateFromPixels(rows.data(), o.width, o.height, 3, stride, true) ||
        !picture.Save(file.GetTemporaryPath().c_str()) || !file.Commit()) {
        std::fprintf(err, "tez render: cannot write %s: %s\n", o.output.c_str(), std::strerror(errno));
        return false;
    }
    return true;
}

} // namespace

int TezRenderDocument(TezRef<TezHostDocument> document, TezDocumentRenderOptions const& o, size_t& shown, FILE* out,
                      FILE* err)
{
    shown = 0;
    TezRef<TezScene> scene = document ? document->GetScene() : nullptr;
    TezRef<TezRenderViewManager> manager = TezRenderViewManager::GetAppRenderViewManager();
    if (!scene || !manager) {
        std::fprintf(err, "tez render: the document has no scene to draw (no GL context)\n");
        return 1;
    }
    std::vector<TezRef<TezDocCubeVolume>> const volumes = Volumes(*document);
    if (volumes.empty()) {
        std::fprintf(err, "tez render: the document holds no volume\n");
        return 1;
    }
    ApplyOptions(volumes, o);
    if (!o.saveFile.empty()) {
        try {
            document->Save(TezString(o.saveFile.c_str()));
        } catch (std::exception const& error) {
            std::fprintf(err, "tez render: %s\n", error.what());
            return 1;
        }
    }

    // Beside the volumes, for this picture only: the mesh and the boxes.
    std::vector<TezRef<TezSceneObject>> extras;
    if (!o.meshFile.empty()) {
        TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromFile(TezString(o.meshFile.c_str()));
        if (!mesh || mesh->GetNumTriangles() == 0) {
            std::fprintf(err, "tez render: cannot read a mesh from %s\n", o.meshFile.c_str());
            return 1;
        }
        TezRef<TezSceneMesh> object = TezSceneMesh::Create(mesh, TezDefaultEffect::StaticType());
        object->SetColor({0.3f, 0.55f, 0.95f, 1.0f});
        extras.push_back(object);
    }
    if (o.box)
        for (TezRef<TezDocCubeVolume> const& volume : volumes) {
            TezRef<TezSceneObject> object = volume->GetSceneObject();
            if (!object)
                continue;
            TezRef<TezSceneRibbonBox> box = TezSceneRibbonBox::Create();
            box->SetBox(object->GetObjectBounds());
            box->SetTransform(object->GetWorldMatrix() * box->GetTransform());
            box->SetColor({0.95f, 0.8f, 0.3f, 1.0f});
            box->SetRibbonWidth(2.0f);
            extras.push_back(box);
        }
    // The picture's background is the view's flat colour.
    for (int i = 0; i < scene->GetRoot()->GetNumChildren(); ++i)
        if (dynamic_cast<TezSceneBackground*>(scene->GetRoot()->GetChild(i).Get()))
            scene->GetRoot()->GetChild(i)->SetProperty(TezSceneObject::Visible, false);

    TezRef<TezCudaRenderView> view(
        dynamic_cast<TezCudaRenderView*>(manager->CreateOffScreenCuda(o.width, o.height).Get()));
    if (!view) {
        std::fprintf(err, "tez render: no off-screen view of %dx%d can be made\n", o.width, o.height);
        return 1;
    }
    view->ActivateContext();
    for (TezRef<TezSceneObject> const& extra : extras)
        scene->AddChild(scene->GetRoot(), extra);
    view->SetScene(scene);
    if (o.transparent)
        view->SetNumAccumHits(uint64_t(o.layers));
    scene->GetLight()->SetPosition({-2.0f, 3.0f, 6.0f});
    view->SetBackgroundColor(kBackground);
    TezRef<TezCameraView> camera = view->GetCamera();
    camera->UsePerspective(o.perspective);
    // The whole scene in the picture, as the plain cast frames its volume.
    camera->FrameStandardView(view->GetBounds(false), o.view);

    bool const written = WritePicture(*view, o, shown, err);

    view->ActivateContext();
    for (TezRef<TezSceneObject> const& extra : extras)
        scene->RemoveChild(extra);
    view->SetScene(nullptr);
    manager->ReleaseRenderView(view);
    view = nullptr;
    if (!written)
        return 1;
    std::fprintf(out, "%s\n", o.output.c_str());
    return 0;
}
