// tez render: a volume source (or a saved octree or document) in, a ray-cast
// picture out. With a GL context the volume is drawn as a document object in
// an off-screen GPU render view (tez/DocumentRender.h); without one it is
// cast into plain buffers and laid over the background (tez/OctreeCast.h).

#include "core/Archive.h"
#include "platform/System.h"
#include "render/OctreeCamera.h"
#include "render/scene/SceneObject.h"
#include "render/views/CudaDevice.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/DocumentRender.h"
#include "tez/HostApplication.h"
#include "tez/OctreeCast.h"
#include "tez/OffscreenGL.h"
#include "tez/OutputFile.h"
#include "tez/SampleStack.h"
#include "tez/VolumeSourceArgs.h"
#include "volume/Image.h"
#include "volume/ImageStack.h"
#include "volume/VoxelOctree.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace {

char const* const kReadingOctree = "reading the octree";
char const* const kReadingDocument = "reading the document";
char const* const kWritingSample = "writing the sample";
char const* const kBuilding = "building the octree";
char const* const kRendering = "rendering";
char const* const kWriting = "writing the picture";

int Stopped(TezTerminalUI& ui, FILE* err)
{
    ui.ClearProgress();
    std::fprintf(err, "tez render: stopped; nothing written\n");
    return 1;
}

// The built-in sample's slices, removed with their folder however the
// command ends.
struct SampleFolder
{
    std::string path;
    ~SampleFolder()
    {
        std::error_code ignored;
        if (!path.empty())
            std::filesystem::remove_all(path, ignored);
    }
};

std::vector<float> Numbers(std::string const& text, char separator)
{
    std::vector<float> values;
    std::stringstream stream(text);
    std::string item;
    while (std::getline(stream, item, separator)) {
        size_t used = 0;
        float const value = std::stof(item, &used);
        if (used != item.size() || !std::isfinite(value))
            throw std::invalid_argument(item);
        values.push_back(value);
    }
    if (values.empty())
        throw std::invalid_argument(text);
    return values;
}

struct RenderOptions
{
    std::string output = "tez-render.png";
    std::string octreeFile;
    std::string depthOutput; // empty: none
    int width = 1024;
    int height = 768;
    int view = TezCameraView::Tilted;
    bool perspective = true;
    bool transparent = false;
    int layers = 2;
    std::vector<TezVector2<float>> points; // in data units; empty: from the data's range
    TezVector4<float> colour{0.9f, 0.85f, 0.75f, 1.0f};
    std::vector<float> plane;
    int cutAxis = -1;
    int bits = 0;           // 0: as the source
    double voxelSize = 0.0; // 0: the source's x spacing
    // The source's spacing along y and z over its spacing along x: the
    // octree has one voxel size, the picture keeps the scan's proportions.
    TezVector3<float> proportions{1.0f, 1.0f, 1.0f};
    int memoryLimit = 1024;
    bool limitGiven = false;
    bool slices = false;
    bool colourGiven = false;
    bool box = false;
    std::string meshFile;
    std::string saveFile;
};

// The option words as given, turned into RenderOptions once they passed
// their checks.
struct RenderWords
{
    std::string size, view, tf, colour, xsection, cut;
    bool ortho = false, perspective = false;
};

// Control points X:Y,X:Y,...: X a data value rising from point to point, Y
// an opacity; empty when the text is no such list.
std::vector<TezVector2<float>> TransferPoints(std::string const& text)
{
    std::vector<TezVector2<float>> points;
    std::stringstream stream(text);
    std::string pair;
    try {
        while (std::getline(stream, pair, ',')) {
            std::vector<float> const xy = Numbers(pair, ':');
            if (xy.size() != 2 || xy[0] < 0 || xy[0] > 65535 || xy[1] < 0 || xy[1] > 1 ||
                (!points.empty() && xy[0] <= points.back()[0]))
                return {};
            points.emplace_back(xy[0], xy[1]);
        }
    } catch (std::exception const&) {
        return {};
    }
    return points.size() < 2 ? std::vector<TezVector2<float>>() : points;
}

void AddOptions(CLI::App& app, RenderOptions& o, RenderWords& w)
{
    app.add_option("-o,--output", o.output, "picture to write; the extension picks the format")
        ->check(TezCliImageName())
        ->capture_default_str();
    CLI::Option* depth = app.add_option(
        "--depth", o.depthOutput,
        "also write each pixel's depth, 0 near to 1 far: floats in .exr, 16 bits in .png or .tif (the volume "
        "is cast alone, without GL geometry)");
    depth->check(CLI::Validator(
        [](std::string& name) {
            std::string const lower = CLI::detail::to_lower(name);
            for (char const* end : {".exr", ".png", ".tif", ".tiff"})
                if (lower.size() > std::strlen(end) &&
                    lower.compare(lower.size() - std::strlen(end), std::string::npos, end) == 0)
                    return std::string();
            return "'" + name + "' must end in .exr, .png, .tif or .tiff";
        },
        "", "depth image name"));
    CLI::Option* octree = app.add_option("--octree", o.octreeFile, "render a saved octree instead of a SOURCE");
    app.add_option("--size", w.size, "picture size in pixels (default 1024x768)")->check(TezCliPictureSize(1, 16384));
    app.add_option("--view", w.view, "front, back, right, left, top, bottom, tilted (default), isometric")
        ->check(CLI::Validator(
            [](std::string& name) {
                return TezCameraView::FindStandardView(name.c_str()) < 0 ? "unknown view '" + name + "'"
                                                                         : std::string();
            },
            "NAME", "view"));
    CLI::Option* ortho = app.add_flag("--ortho", w.ortho, "orthographic projection");
    app.add_flag("--perspective", w.perspective, "perspective projection (default)")->excludes(ortho);
    CLI::Option* transparent = app.add_flag("--transparent", o.transparent, "layered rendering, blended back to front");
    app.add_option("--layers", o.layers, "layers per pixel when transparent (default 2)")
        ->check(CLI::Range(1, 16))
        ->needs(transparent);
    app.add_option("--tf", w.tf,
                   "opacity Y (0..1) at data value X (0..255 for 8-bit data, 0..65535 for 16-bit), X rising, "
                   "flat beyond the ends (default: opaque from 30% of the way up the data's range)")
        ->type_name("X:Y,X:Y,...")
        ->check(CLI::Validator(
            [](std::string& text) {
                return TransferPoints(text).empty()
                           ? "'" + text +
                                 "' needs at least two X:Y pairs, X a data value rising from pair "
                                 "to pair, Y from 0 to 1"
                           : std::string();
            },
            "", "transfer function"));
    app.add_option("--color", w.colour, "surface colour, each from 0 to 1 (default 0.9,0.85,0.75,1)")
        ->type_name("R,G,B[,A]")
        ->check(TezCliNumbers(3, 4, 0.0, 1.0));
    CLI::Option* xsection = app.add_option("--xsection", w.xsection, "keep the half space the normal points into")
                                ->type_name("PX,PY,PZ,NX,NY,NZ")
                                ->check(TezCliNumbers(6, 6, -1e30, 1e30));
    app.add_option("--cut", w.cut, "cross-section through the centre, keeping the far half")
        ->check(CLI::IsMember({"x", "y", "z"}))
        ->excludes(xsection);
    app.add_option("--bpp", o.bits, "octree bits, as tez octree (default: the source's)")
        ->check(CLI::IsMember({8, 16}));
    app.add_option("--voxel-size", o.voxelSize, "octree voxel size (default: the source's x spacing)")
        ->check(CLI::PositiveNumber);
    app.add_option("--memory-limit", o.memoryLimit, "MiB of slices held while building (default 1024)")
        ->check(CLI::Range(1, 1 << 30))
        ->excludes(octree);
    app.add_flag("--slices", o.slices,
                 "draw an 8-bit cube of GL textured slices instead of the cast octree (a numbered slice stack; "
                 "--transparent and the cuts are the octree's)")
        ->excludes(octree)
        ->excludes(transparent);
    app.add_flag("--box", o.box, "draw the volume's bounding box");
    app.add_option("--mesh", o.meshFile,
                   "draw a mesh (STL, OBJ, PLY) with the volume, in the volume's world units; each hides the "
                   "other where it is nearer")
        ->check(CLI::ExistingFile);
    app.add_option("--save", o.saveFile,
                   "save the document holding the volume; tez render DOC.mvne draws it again (--tf and --color "
                   "then change its looks for that picture)")
        ->type_name("DOC.mvne");
    for (char const* drawn : {"--slices", "--box", "--mesh", "--save"})
        depth->excludes(drawn);
}

bool IsDocumentName(std::string const& name)
{
    return name.size() > 5 && name.compare(name.size() - 5, 5, ".mvne") == 0;
}

// The words into options; what is wrong, or empty.
std::string Finish(RenderWords const& w, RenderOptions& o)
{
    if (!w.size.empty())
        TezParsePictureSize(w.size, o.width, o.height, 1, 16384);
    if (!w.view.empty())
        o.view = TezCameraView::FindStandardView(w.view.c_str());
    o.perspective = !w.ortho;
    if (!w.tf.empty())
        o.points = TransferPoints(w.tf);
    if (!w.colour.empty()) {
        std::vector<float> const c = Numbers(w.colour, ',');
        o.colour = TezVector4<float>(c[0], c[1], c[2], c.size() == 4 ? c[3] : 1.0f);
        o.colourGiven = true;
    }
    if (!o.saveFile.empty() && !IsDocumentName(o.saveFile))
        return "--save needs a document name ending in .mvne";
    if (!w.xsection.empty()) {
        o.plane = Numbers(w.xsection, ',');
        if (o.plane[3] * o.plane[3] + o.plane[4] * o.plane[4] + o.plane[5] * o.plane[5] == 0)
            return "--xsection needs a non-zero normal";
    }
    if (!w.cut.empty())
        o.cutAxis = w.cut[0] - 'x';
    return std::string();
}

TezRef<TezVoxelOctree> LoadOctree(std::string const& path, FILE* err)
{
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Read);
    if (!archive) {
        std::fprintf(err, "tez render: cannot open %s\n", path.c_str());
        return TezRef<TezVoxelOctree>();
    }
    TezRef<TezVoxelOctree> tree(new TezVoxelOctree());
    try {
        tree->Load(archive);
    } catch (std::exception const& error) {
        std::fprintf(err, "tez render: %s is not a readable octree: %s\n", path.c_str(), error.what());
        return TezRef<TezVoxelOctree>();
    }
    if (tree->GetTreeSize() <= 0) {
        std::fprintf(err, "tez render: %s holds no octree\n", path.c_str());
        return TezRef<TezVoxelOctree>();
    }
    return tree;
}

// The sample stack in a fresh temporary folder, read back like any stack.
std::string WriteSample(FILE* err)
{
    std::string folder = TezGetEnv("TMPDIR");
    if (folder.empty())
        folder = "/tmp";
    folder += "/tez-sample-XXXXXX";
    std::vector<char> name(folder.begin(), folder.end());
    name.push_back('\0');
    if (!mkdtemp(name.data())) {
        std::fprintf(err, "tez render: cannot make a temporary folder: %s\n", std::strerror(errno));
        return std::string();
    }
    return TezWriteSampleStack(name.data(), 128);
}

// The depth of each pixel's surface as GL's window depth, 0 (near) to 1
// (far; no surface): floats in EXR, 16-bit integers in PNG and TIFF.
bool SaveDepth(std::vector<uint32_t> const& words, RenderOptions const& o, std::string const& path)
{
    std::vector<float> depth(words.size());
    for (size_t i = 0; i < words.size(); ++i)
        depth[i] = words[i] == 0 || words[i] == 0xFFFFFFFFu ? 1.0f : float(double(words[i]) / 16777216.0);
    bool const exr = CLI::detail::to_lower(path.substr(path.size() - 4)) == ".exr";
    TezImage image;
    return image.CreateGreyFromValues(depth.data(), o.width, o.height, false, exr) && image.Save(path.c_str());
}

// The control points in data units: the given ones, or the default over
// the data's range.
std::vector<TezVector2<float>> DataPoints(RenderOptions const& o, double low, double high)
{
    return o.points.empty() ? TezDefaultTransferPoints(low, high) : o.points;
}

// The cross-section asked for, in world space; false for none.
bool CutPlane(RenderOptions const& o, TezBox3<float> const& bounds, TezPlane<float>& plane)
{
    if (!o.plane.empty()) {
        plane = TezPlane<float>(TezVector3<float>(o.plane[0], o.plane[1], o.plane[2]),
                                TezVector3<float>(o.plane[3], o.plane[4], o.plane[5]).Normalized());
        return true;
    }
    if (o.cutAxis >= 0) {
        TezVector3<float> normal(0.0f, 0.0f, 0.0f);
        normal[o.cutAxis] = 1.0f;
        plane = TezPlane<float>(bounds.Center(), normal);
        return true;
    }
    return false;
}

bool Anisotropic(RenderOptions const& o) { return o.proportions.y != 1.0f || o.proportions.z != 1.0f; }

void WarnIfEmpty(size_t shown, bool hasRange, double low, double high, FILE* err)
{
    if (shown != 0)
        return;
    std::fprintf(err, "tez render: warning: the picture shows nothing: no ray met a voxel that the transfer "
                      "function makes opaque");
    if (hasRange)
        std::fprintf(err, " (the data's values run from %.0f to %.0f; see --tf)", low, high);
    std::fprintf(err, "\n");
}

// The command line's choices for a picture of a document.
TezDocumentRenderOptions DocumentOptions(RenderOptions const& o)
{
    TezDocumentRenderOptions d;
    d.output = o.output;
    d.width = o.width;
    d.height = o.height;
    d.view = o.view;
    d.perspective = o.perspective;
    d.transparent = o.transparent;
    d.layers = o.layers;
    d.hasColour = o.colourGiven;
    d.colour = o.colour;
    d.box = o.box;
    d.meshFile = o.meshFile;
    d.saveFile = o.saveFile;
    return d;
}

// Draws the document with the progress steps of rendering and writing.
int DrawDocument(TezRef<TezHostDocument> document, TezDocumentRenderOptions const& d, TezTerminalUI& ui, size_t& shown,
                 FILE* out, FILE* err)
{
    ui.BeginStep(kRendering);
    int const code = TezRenderDocument(document, d, shown, out, err);
    ui.ClearProgress();
    return code;
}

// The octree as a volume of a new document, drawn in a GPU render view.
int RenderInDocument(TezHostApplication& app, TezRef<TezVoxelOctree> const& octree, RenderOptions const& o,
                     TezTerminalUI& ui, FILE* out, FILE* err)
{
    double low = 0.0, high = 0.0;
    bool const hasRange = TezOctreeDataRange(*octree, low, high);
    TezDocumentRenderOptions d = DocumentOptions(o);
    d.points = TezNormalisedTransferPoints(DataPoints(o, low, high), octree->GetBitsPerPixel());
    d.hasColour = true;
    d.hasCut = CutPlane(o, TezProportionedBox(octree->GetBounds(), o.proportions), d.cut);
    TezRef<TezHostDocument> document(app.NewDocument());
    TezRef<TezDocCubeVolume> volume = TezAddVolumeToDocument(document, octree);
    if (Anisotropic(o))
        volume->SetTransform(TezAnisotropicTransform<float>(o.proportions) * volume->GetTransform());
    size_t shown = 0;
    int const code = DrawDocument(document, d, ui, shown, out, err);
    if (code == 0)
        WarnIfEmpty(shown, hasRange, low, high, err);
    return code;
}

// The stack as a cube volume of a new document: textured slices in GL.
int RenderSlicesInDocument(TezHostApplication& app, TezRef<TezImageStack> const& stack, double voxelSize, int bits,
                           RenderOptions const& o, TezTerminalUI& ui, FILE* out, FILE* err)
{
    ui.BeginStep(kBuilding);
    TezRef<TezDocCubeVolume> volume = TezDocCubeVolume::Create(stack, voxelSize, 8, TezDocCubeVolume::CubeVolumeType);
    ui.ClearProgress();
    if (!volume->GetCubeVolume()) {
        std::fprintf(err, "tez render: the slices could not be read into a cube volume\n");
        return 1;
    }
    // The cube holds 8-bit values: --tf stays in the data's units.
    double low = 0.0, high = 0.0;
    bool const hasRange = TezOctreeDataRange(volume->GetHistogram(), 8, low, high);
    TezDocumentRenderOptions d = DocumentOptions(o);
    d.points = o.points.empty() ? TezNormalisedTransferPoints(DataPoints(o, low, high), 8)
                                : TezNormalisedTransferPoints(o.points, bits);
    d.hasColour = true;
    TezRef<TezHostDocument> document(app.NewDocument());
    document->AddObject(volume);
    size_t shown = 0;
    int const code = DrawDocument(document, d, ui, shown, out, err);
    if (code == 0)
        WarnIfEmpty(shown, hasRange, low, high, err);
    return code;
}

// A saved document, with the command line's changes for this picture.
int RenderSavedDocument(TezHostApplication& app, std::string const& path, RenderOptions const& o, TezTerminalUI& ui,
                        FILE* out, FILE* err)
{
    ui.BeginStep(kReadingDocument);
    TezRef<TezHostDocument> document(app.OpenDocument(TezString(path.c_str())));
    ui.ClearProgress();
    if (!document || document->GetLastError() != TezDocument::DocNoError) {
        std::fprintf(err, "tez render: cannot open the document %s\n", path.c_str());
        return 1;
    }
    TezDocumentRenderOptions d = DocumentOptions(o);
    int bits = 8;
    TezBox3<float> bounds;
    for (TezRef<TezDocumentObject> const& object : document->GetObjects())
        if (auto* volume = dynamic_cast<TezDocCubeVolume*>(object.Get())) {
            bits = volume->GetBitsPerPixel();
            if (volume->GetSceneObject())
                bounds = volume->GetSceneObject()->GetBounds(true);
        }
    if (!o.points.empty())
        d.points = TezNormalisedTransferPoints(o.points, bits);
    d.hasCut = CutPlane(o, bounds, d.cut);
    size_t shown = 0;
    int const code = DrawDocument(document, d, ui, shown, out, err);
    if (code == 0)
        WarnIfEmpty(shown, false, 0.0, 0.0, err);
    return code;
}

int Render(TezRef<TezVoxelOctree> const& octree, RenderOptions const& o, TezTerminalUI& ui, FILE* out, FILE* err)
{
    ui.BeginStep(kRendering, o.transparent ? 2 : 1);
    double low = 0.0, high = 0.0;
    bool const hasRange = TezOctreeDataRange(*octree, low, high);
    TezOctreeCastOptions c;
    c.width = o.width;
    c.height = o.height;
    c.view = o.view;
    c.perspective = o.perspective;
    c.transparent = o.transparent;
    c.layers = o.layers;
    c.points = DataPoints(o, low, high);
    c.colour = o.colour;
    c.proportions = o.proportions;
    c.hasCut = CutPlane(o, TezProportionedBox(octree->GetBounds(), o.proportions), c.cut);
    TezOctreeCast const cast = TezCastOctree(octree, c);
    ui.ClearProgress();
    if (TezTerminalUI::StopRequested())
        return Stopped(ui, err);
    if (!cast.drawn)
        std::fprintf(err, "tez render: a render step failed; see the log\n");

    size_t shown = 0;
    std::vector<uint8_t> image = TezComposeOctreeCast(cast, c, shown);
    WarnIfEmpty(shown, hasRange, low, high, err);
    ui.BeginStep(kWriting);
    TezImage picture;
    TezOutputFile file(o.output);
    bool const saved = picture.CreateFromPixels(image.data(), o.width, o.height, 4, size_t(o.width) * 4, false) &&
                       picture.Save(file.GetTemporaryPath().c_str());
    std::unique_ptr<TezOutputFile> depthFile;
    bool depthSaved = true;
    if (!o.depthOutput.empty()) {
        depthFile = std::make_unique<TezOutputFile>(o.depthOutput);
        depthSaved = SaveDepth(cast.buffers.ReadDepth(), o, depthFile->GetTemporaryPath());
    }
    // Ctrl-C while the files were written still means: nothing written.
    if (TezTerminalUI::StopRequested())
        return Stopped(ui, err);
    ui.ClearProgress();
    if (!saved || !file.Commit()) {
        std::fprintf(err, "tez render: cannot write %s: %s\n", o.output.c_str(), std::strerror(errno));
        return 1;
    }
    std::fprintf(out, "%s\n", o.output.c_str());
    if (depthFile) {
        if (!depthSaved || !depthFile->Commit()) {
            std::fprintf(err, "tez render: cannot write %s: %s\n", o.depthOutput.c_str(), std::strerror(errno));
            return 1;
        }
        std::fprintf(out, "%s\n", o.depthOutput.c_str());
    }
    return cast.drawn ? 0 : 1;
}
} // namespace

int TezRenderCommand(TezArgs const& args, FILE* out, FILE* err)
{
    RenderOptions options;
    RenderWords words;
    TezVolumeSourceArgs source;
    CLI::App cli("Ray casts a volume source, a saved octree, a saved document (DOC.mvne) or (with no source) a "
                 "built-in CT-like sample into a picture, merged by depth with GL geometry where a GL context can "
                 "be made.",
                 "tez render");
    source.AddOptions(cli);
    AddOptions(cli, options, words);
    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    options.limitGiven = cli.count("--memory-limit") > 0;
    std::vector<std::string> const& positional = source.words;
    if (!positional.empty() && !options.octreeFile.empty())
        return TezCliUsageError(cli, "give either SOURCE or --octree FILE", err);
    bool const documentFile = positional.size() == 1 && IsDocumentName(positional[0]);
    std::string problem = Finish(words, options);
    if (problem.empty() && !positional.empty() && !documentFile)
        problem = source.Parse(positional);
    if (!problem.empty())
        return TezCliUsageError(cli, problem, err);

    // The context comes first: the application takes it, and dies before it.
    TezOffscreenGL gl;
    // The kernels use a GPU where one is; the code only says why they do not.
    if (gl.Ok())
        InitializeCUDA();
    TezHostApplication app(gl.GetContext(), gl.GetWindow());
    TezTerminalUI& ui = app.GetTerminalUI();
    if (documentFile) {
        if (!options.depthOutput.empty())
            return TezCliUsageError(cli, "--depth is for a volume source, not a document", err);
        if (!gl.Ok()) {
            std::fprintf(err, "tez render: a document is drawn with GL; these need GL: %s", gl.Problem().c_str());
            return 1;
        }
        ui.PlanSteps({{kReadingDocument, 1.0}, {kRendering, 3.0}});
        return RenderSavedDocument(app, positional[0], options, ui, out, err);
    }
    if (!gl.Ok() && (options.box || options.slices || !options.meshFile.empty() || !options.saveFile.empty())) {
        std::fprintf(err, "tez render: --box, --slices, --mesh and --save need GL: %s", gl.Problem().c_str());
        return 1;
    }
    std::vector<TezTerminalUI::Step> steps;
    if (!options.octreeFile.empty())
        steps.push_back({kReadingOctree, 1.0});
    if (options.octreeFile.empty() && positional.empty())
        steps.push_back({kWritingSample, 1.0});
    if (options.octreeFile.empty())
        steps.push_back({kBuilding, 3.0});
    steps.push_back({kRendering, 3.0});
    steps.push_back({kWriting, 0.5});
    ui.PlanSteps(steps);
    TezRef<TezVoxelOctree> tree;
    SampleFolder sampleFolder;
    if (!options.octreeFile.empty()) {
        ui.BeginStep(kReadingOctree);
        tree = LoadOctree(options.octreeFile, err);
    } else {
        if (positional.empty()) {
            ui.BeginStep(kWritingSample);
            std::string const pattern = WriteSample(err);
            if (!pattern.empty())
                sampleFolder.path = pattern.substr(0, pattern.find_last_of('/'));
            if (TezTerminalUI::StopRequested())
                return Stopped(ui, err);
            if (pattern.empty())
                return 1;
            std::string const bad = source.Parse({pattern, "0", "127"});
            if (!bad.empty())
                return TezCliUsageError(cli, bad, err);
        }
        TezRef<TezVolumeData> images = source.Open("render", err);
        if (!images)
            return 1;
        int const bits = options.bits ? options.bits : source.NativeBits();
        double const voxelSize = options.voxelSize > 0 ? options.voxelSize : images->GetSpacing().x;
        options.proportions = images->GetProportions();
        if (options.slices) {
            TezRef<TezImageStack> stack(dynamic_cast<TezImageStack*>(images.Get()));
            if (!stack)
                return TezCliUsageError(cli, "--slices needs a numbered slice stack (PATTERN FIRST LAST)", err);
            return RenderSlicesInDocument(app, stack, voxelSize, bits, options, ui, out, err);
        }
        int const smallest =
            TezVoxelOctreeSmallestMemoryLimit(images->GetWidth(), images->GetHeight(), images->GetDepth(), bits);
        if (options.limitGiven && options.memoryLimit < smallest) {
            std::fprintf(err,
                         "tez render: --memory-limit %d MiB is too small for this %d x %d x %d stack at %d bits: "
                         "one slab of slices needs %d MiB; use --memory-limit %d or more\n",
                         options.memoryLimit, images->GetWidth(), images->GetHeight(), images->GetDepth(), bits,
                         smallest, smallest);
            return 2;
        }
        ui.BeginStep(kBuilding);
        tree = TezVoxelOctree::CreateFromVolumeData(TezString("render"), images, voxelSize, bits, options.memoryLimit);
        ui.ClearProgress();
        if (!tree && TezTerminalUI::StopRequested())
            return Stopped(ui, err);
        if (!tree)
            std::fprintf(err, "tez render: the octree build was refused; see the log\n");
        // Damaged pixel data shows only while the slices are read.
        else if (!source.AcceptAfterRead("render", err))
            tree = TezRef<TezVoxelOctree>();
    }
    if (!tree)
        return 1;
    try {
        // The depth is the ray caster's own; a document's picture merges GL's in.
        if (gl.Ok() && options.depthOutput.empty())
            return RenderInDocument(app, tree, options, ui, out, err);
        return Render(tree, options, ui, out, err);
    } catch (std::exception const& error) {
        std::fprintf(err, "tez render: %s\n", error.what());
        return 1;
    }
}
