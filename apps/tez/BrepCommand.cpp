// tez brep: B-reps of Rhino 3DM files.
//   tez brep info FILE.3dm                  what the file holds, and its mesh
//   tez brep mesh FILE.3dm -o OUT.stl       the faces meshed into one STL
//   tez brep render FILE.3dm -o OUT.png     a picture of the faces and edges
//   tez brep sample NAME -o OUT.3dm         a built-in model as a 3DM file
#include "document/objects/DocBrep.h"
#include "mesh/IndexedMesh.h"
#include "mesh/MeshWriter.h"
#include "mesh/brep/BrepRhino.h"
#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/gl/FrameBuffer.h"
#include "render/gl/OpenGLSupport.h"
#include "render/objects/SceneBackground.h"
#include "render/scene/Light.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/HostDocument.h"
#include "tez/MeshCommand.h"
#include "tez/OutputFile.h"
#include "volume/Image.h"

#include <GL/glew.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct BrepOptions
{
    std::string input;
    std::string output;
    std::string size = "1200x900";
    bool ascii = false;
    int version = 0;
};

TezRef<TezBrepRhino> ReadBrep(std::string const& path, FILE* err)
{
    TezRef<TezBrep> brep = TezBrep::ReadFromFile(TezString(path.c_str()));
    if (!brep) {
        std::fprintf(err, "tez brep: cannot read %s: %s\n", path.c_str(), TezBrepRhino::GetLastError().c_str());
        return nullptr;
    }
    return TezRef<TezBrepRhino>(static_cast<TezBrepRhino*>(brep.Get()));
}

// The mesh of every face; false (after a message) when a face cannot be
// meshed.
TezRef<TezIndexedMesh> MeshOf(TezRef<TezBrepRhino> const& brep, FILE* err)
{
    try {
        return brep->Tessellate();
    } catch (std::exception const& e) {
        std::fprintf(err, "tez brep: %s\n", e.what());
        return nullptr;
    }
}

int Info(BrepOptions const& options, FILE* out, FILE* err)
{
    TezHostApplication app;
    TezRef<TezBrepRhino> brep = ReadBrep(options.input, err);
    if (!brep)
        return 1;
    TezBrepModel const& model = brep->GetModel();
    size_t vertices = 0;
    for (TezBrepModelBrep const& b : model.breps)
        vertices += b.vertices.size();
    std::fprintf(out, "file: %s\n", options.input.c_str());
    std::fprintf(out, "3dm version: %d\n", model.archiveVersion / 10 > 0 ? model.archiveVersion / 10 : 0);
    std::fprintf(out, "model: %s\n", model.valid ? "valid" : "not valid");
    std::fprintf(out, "breps: %d\n", model.numBreps);
    std::fprintf(out, "faces: %d\n", brep->GetNumFaces());
    std::fprintf(out, "edges: %d\n", brep->GetNumEdges());
    std::fprintf(out, "vertices: %zu\n", vertices);
    std::fprintf(out, "instance definition objects: %d (breps %d)\n", model.numInstanceDefinitionObjects,
                 model.numBrepsInInstanceDefinitions);
    std::fprintf(out, "instance references: %d\n", model.numInstanceReferences);
    std::fprintf(out, "non-breps: %d\n", model.numNonBreps);
    TezRef<TezIndexedMesh> mesh = MeshOf(brep, err);
    if (!mesh)
        return 1;
    TezBox3<float> const bounds = mesh->ComputeBounds();
    if (!bounds.Empty()) {
        TezVector3<float> const& lo = bounds.GetMinimum();
        TezVector3<float> const& hi = bounds.GetMaximum();
        std::fprintf(out, "bounds: %g %g %g .. %g %g %g\n", lo.x, lo.y, lo.z, hi.x, hi.y, hi.z);
    } else {
        std::fprintf(out, "bounds: empty\n");
    }
    std::fprintf(out, "mesh triangles: %zu\n", mesh->GetNumTriangles());
    std::fprintf(out, "mesh holes: %zu\n", TezMeshCountHoles(mesh));
    std::fprintf(out, "mesh area: %g\n", mesh->ComputeSurfaceArea());
    std::fprintf(out, "mesh volume: %g\n", mesh->ComputeVolume());
    return 0;
}

int Mesh(BrepOptions const& options, FILE* out, FILE* err)
{
    TezHostApplication app;
    TezRef<TezBrepRhino> brep = ReadBrep(options.input, err);
    if (!brep)
        return 1;
    if (brep->GetNumFaces() == 0) {
        std::fprintf(err, "tez brep mesh: %s holds no B-rep faces\n", options.input.c_str());
        return 1;
    }
    TezRef<TezIndexedMesh> mesh = MeshOf(brep, err);
    if (!mesh)
        return 1;
    TezOutputFile file(options.output);
    if (!TezMeshWriter::Write(mesh, file.GetTemporaryPath(), options.ascii) || !file.Commit()) {
        std::fprintf(err, "tez brep mesh: cannot write '%s': %s\n", options.output.c_str(), std::strerror(errno));
        return 1;
    }
    std::fprintf(out, "%s: %zu triangles from %d faces, %zu holes\n", options.output.c_str(), mesh->GetNumTriangles(),
                 brep->GetNumFaces(), TezMeshCountHoles(mesh));
    return 0;
}

int Sample(BrepOptions const& options, FILE* out, FILE* err)
{
    std::vector<uint8_t> bytes;
    try {
        bytes = TezBrepRhino::MakeSampleFile(options.input, options.version);
    } catch (std::exception const& e) {
        std::fprintf(err, "tez brep sample: %s\n", e.what());
        return 1;
    }
    TezOutputFile file(options.output);
    {
        std::ofstream stream(file.GetTemporaryPath(), std::ios::binary);
        stream.write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!stream || (stream.close(), !stream)) {
            std::fprintf(err, "tez brep sample: cannot write '%s'\n", options.output.c_str());
            return 1;
        }
    }
    if (!file.Commit()) {
        std::fprintf(err, "tez brep sample: cannot write '%s': %s\n", options.output.c_str(), std::strerror(errno));
        return 1;
    }
    std::fprintf(out, "%s: %s, %zu bytes\n", options.output.c_str(), options.input.c_str(), bytes.size());
    return 0;
}

// The camera looks at the model's middle from the front, right and above,
// far enough for the whole box to fit.
TezRef<TezCameraView> FitCamera(TezBox3<float> const& box, int width, int height)
{
    TezVector3<float> const centre = box.Center();
    TezVector3<float> const extent = box.GetMaximum() - box.GetMinimum();
    float const radius =
        std::max(0.5f * std::sqrt(extent.x * extent.x + extent.y * extent.y + extent.z * extent.z), 1e-3f);
    TezVector3<float> direction(0.55f, -0.75f, 0.45f);
    float const length = std::sqrt(direction.x * direction.x + direction.y * direction.y + direction.z * direction.z);
    float const fov = 35.0f;
    float const aspect = static_cast<float>(width) / static_cast<float>(height);
    float const halfAngle =
        std::atan(std::tan(fov * 0.5f * static_cast<float>(M_PI) / 180.0f) * std::min(1.0f, aspect));
    float const distance = radius / std::sin(halfAngle);
    TezRef<TezCameraView> camera = TezCameraView::Create();
    camera->Resize(width, height);
    camera->UsePerspective(true);
    camera->SetFocus(centre);
    camera->SetEye(centre + direction * (distance / length));
    camera->SetUp({0.0f, 0.0f, 1.0f});
    camera->SetFov(fov);
    camera->SetNear(std::max(distance - radius * 1.5f, distance * 0.01f));
    camera->SetFar(distance + radius * 1.5f);
    return camera;
}

int Render(BrepOptions const& options, FILE* out, FILE* err)
{
    int width = 0, height = 0;
    TezParsePictureSize(options.size, width, height);
    HWND window = TezGLPlatform::CreateOffscreenWindow(width, height);
    HGLRC context = nullptr;
    int const code = TezOpenGLSupport::TezInitializeGLRC(window, context);
    if (code != TezOpenGLSupport::Success) {
        std::fprintf(err, "tez brep render: %s", TezOpenGLSupport::TezErrorString(code).c_str());
        TezGLPlatform::DestroyWindow(window);
        return 1;
    }
    HDC dc = TezGLPlatform::GetDC(window);
    int result = 1;
    if (TezGLPlatform::MakeCurrent(dc, context) && TezOpenGLSupport::LoadEntryPoints()) {
        TezHostApplication app(context, window);
        TezRef<TezBrepRhino> brep = ReadBrep(options.input, err);
        if (brep && brep->GetNumFaces() == 0) {
            std::fprintf(err, "tez brep render: %s holds no B-rep faces\n", options.input.c_str());
            brep = nullptr;
        }
        if (brep) {
            TezRef<TezHostDocument> document = TezHostDocument::Create();
            TezRef<TezDocBrep> object;
            try {
                object = TezDocBrep::Create(brep);
            } catch (std::exception const& e) {
                std::fprintf(err, "tez brep render: %s\n", e.what());
            }
            if (object) {
                TezRef<TezScene> scene = document->GetScene();
                scene->AddChild(scene->GetRoot(), TezSceneBackground::Create());
                document->AddObject(object);
                TezBox3<float> const box = brep->ComputeBounds();
                TezRef<TezCameraView> camera = FitCamera(box, width, height);
                scene->GetLight()->SetPosition(camera->GetEye());
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
                    TezOutputFile file(options.output);
                    if (frame->ReadPixels(0, pixels) &&
                        image.CreateFromPixels(pixels.data(), width, height, 4, static_cast<size_t>(width) * 4,
                                               false) &&
                        image.Save(file.GetTemporaryPath().c_str()) && file.Commit()) {
                        std::fprintf(out, "%s: %dx%d, %d faces, %zu edges, %s\n", options.output.c_str(), width, height,
                                     brep->GetNumFaces(), object->GetEdgeObjects().size(),
                                     TezOpenGLSupport::GetContextDescription().c_str());
                        result = 0;
                    } else {
                        std::fprintf(err, "tez brep render: cannot write %s\n", options.output.c_str());
                    }
                } else {
                    std::fprintf(err, "tez brep render: the frame buffer is incomplete\n");
                }
                // GL objects go while the context is still current.
                document->RemoveAllObjects();
                scene = nullptr;
                frame = nullptr;
            }
            object = nullptr;
            document = nullptr;
        }
    } else {
        std::fprintf(err, "tez brep render: the GL context cannot be bound\n");
    }
    TezGLPlatform::MakeCurrent(nullptr, nullptr);
    TezOpenGLSupport::TezReleaseGLRC(context);
    TezGLPlatform::ReleaseDC(window, dc);
    TezGLPlatform::DestroyWindow(window);
    return result;
}

} // namespace

int TezBrepCommand(TezArgs const& args, FILE* out, FILE* err)
{
    CLI::App app("B-reps of Rhino 3DM files (versions 5 to 8), read through opennurbs", "tez brep");
    app.require_subcommand(1);
    BrepOptions options;
    CLI::App* info = app.add_subcommand("info", "what the file holds: breps, faces, edges, and its mesh");
    info->add_option("file", options.input, "a Rhino 3DM file")->required();
    CLI::App* mesh = app.add_subcommand("mesh", "mesh every face into one mesh (closed where the B-rep is)");
    mesh->add_option("file", options.input, "a Rhino 3DM file")->required();
    mesh->add_option("-o,--output", options.output, "mesh to write: .stl, .obj or .ply")
        ->required()
        ->check(TezCliMeshName());
    mesh->add_flag("--ascii", options.ascii, "text STL or PLY instead of binary");
    CLI::App* render = app.add_subcommand("render", "draw the faces and edges off-screen into a picture");
    render->add_option("file", options.input, "a Rhino 3DM file")->required();
    render->add_option("-o,--output", options.output, "picture to write")->required()->check(TezCliImageName(false));
    render->add_option("--size", options.size, "picture size WxH")
        ->check(TezCliPictureSize(16, 8192))
        ->capture_default_str();
    CLI::App* sample = app.add_subcommand("sample", "write a built-in model as a 3DM file");
    sample->add_option("name", options.input, "box, pipe, patch, sphere, mixed, instances or many:N")->required();
    sample->add_option("-o,--output", options.output, "3DM file to write")->required();
    sample->add_option("--version", options.version, "3DM file version, 5 to 8 (0: the newest)")
        ->check(CLI::Range(0, 8));
    if (int code = TezCliParse(app, args, out, err); code >= 0)
        return code;
    if (info->parsed())
        return Info(options, out, err);
    if (mesh->parsed())
        return Mesh(options, out, err);
    if (render->parsed())
        return Render(options, out, err);
    return Sample(options, out, err);
}
