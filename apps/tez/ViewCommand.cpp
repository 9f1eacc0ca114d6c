// tez view: an interactive window on a volume, a mesh or a document.
//
// The window is GLFW's on X11, made without a GL context of its own: the
// kernel makes its context on the window's EGL surface (TezGLPlatform's X11
// window) and a GPU render view draws into it. Mouse and keys go to the
// view's tool manager; what it leaves alone the viewer takes (standard views,
// undo and redo of camera steps, save, screenshot). A volume is built on a
// worker thread while the window stays live, with the progress in the title;
// Esc or Ctrl-C stops the build. With --offscreen the same view is drawn
// into an off-screen surface, which --bench uses to time orbit frames and
// picks without a display.

#include "core/UIManager.h"
#include "document/CommandManager.h"
#include "document/DocumentCommands.h"
#include "document/ExportCommands.h"
#include "document/Selection.h"
#include "document/ViewCommands.h"
#include "document/objects/CmdUpdateTransferFunction.h"
#include "document/objects/DocCubeVolume.h"
#include "mesh/IndexedMesh.h"
#include "platform/gl/GLPlatform.h"
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
#include "tez/SampleStack.h"
#include "tez/ViewSession.h"
#include "tez/VolumeSourceArgs.h"
#include "tools/ObjectTools.h"
#include "tools/ToolManager.h"
#include "volume/Image.h"
#include "volume/VoxelOctree.h"

#include <GL/glew.h>
#define GLFW_INCLUDE_NONE
#include <GLFW/glfw3.h>

// GLFW's X11 access (glfw3native.h), declared here: that header wants the
// XRandR headers for functions the viewer does not use.
extern "C" {
struct _XDisplay* glfwGetX11Display(void);
unsigned long glfwGetX11Window(GLFWwindow* window);
}

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <future>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

char const* const kKeys = "keys and mouse:\n"
                          "  middle drag       orbit (Ctrl: about up only, Shift: up and down only, both: roll)\n"
                          "  right drag        pan\n"
                          "  wheel             zoom\n"
                          "  Ctrl + left drag  zoom window (one undo step)\n"
                          "  1 to 8            front, back, right, left, top, bottom, tilted, isometric\n"
                          "  Home or A         zoom all\n"
                          "  Ctrl+Z, Ctrl+Y    undo, redo the camera steps (the object steps while M or R is on)\n"
                          "  M, R              move or rotate the mesh by its arrows or rings (again: off)\n"
                          "  S                 select by a rubber band (left drag)\n"
                          "  L                 draw a polyline by clicks\n"
                          "  O                 print the point and object under each click\n"
                          "  Ctrl+S            save the document\n"
                          "  P or F12          screenshot (tez-view-N.png in --shots)\n"
                          "  Esc               stop a running build; otherwise close\n";

bool EndsWith(std::string const& text, char const* tail)
{
    size_t const n = std::strlen(tail);
    if (text.size() < n)
        return false;
    return strcasecmp(text.c_str() + text.size() - n, tail) == 0;
}

bool IsFolder(std::string const& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool Exists(std::string const& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

// The UI bridge of the viewer: the terminal's, with the stop flag also
// raised by Esc, the build's progress kept for the title, and cursors and
// "zoom all" handed to the window's loop.
class ViewUI : public TezUICallback
{
public:
    explicit ViewUI(TezTerminalUI& terminal) : m_terminal(terminal) {}
    void StartProgress(uint64_t count) override
    {
        m_total = count;
        m_done = 0;
        m_terminal.StartProgress(count);
    }
    void EndProgress() override { m_terminal.EndProgress(); }
    void StepProgress(uint32_t count) override
    {
        m_done += count;
        m_terminal.StepProgress(count);
    }
    void SetProgressMessage(TezString const& message) override { m_terminal.SetProgressMessage(message); }
    void StartNestedSection(bool flag) override { m_terminal.StartNestedSection(flag); }
    void FinishNestedSection() override { m_terminal.FinishNestedSection(); }
    void AddNode(int node) override { m_terminal.AddNode(node); }
    void RemoveNode(int node) override { m_terminal.RemoveNode(node); }
    void SetActiveNode(int node) override { m_terminal.SetActiveNode(node); }
    void SetActiveLevel(int level) override { m_terminal.SetActiveLevel(level); }
    int GetActiveLevel() override { return m_terminal.GetActiveLevel(); }
    bool GetStopFlag() override { return m_stop || m_terminal.GetStopFlag(); }
    void ZoomAll() override { m_zoomAll = true; }
    void SetCursor(TezResourceManager::Cursors cursor) override { m_cursor = cursor; }
    void SetToolCursor(TezResourceManager::Cursors cursor) override
    {
        m_toolCursor = cursor;
        m_cursor = cursor;
    }
    void ReportError(TezString const& text) override { m_terminal.ReportError(text); }

    // Percent of the running build, -1 when none reported.
    int Percent() const
    {
        uint64_t const total = m_total;
        return total ? static_cast<int>(std::min<uint64_t>(100, m_done * 100 / total)) : -1;
    }
    std::atomic<bool> m_stop{false};
    bool m_zoomAll = false;
    int m_cursor = 0;
    int m_toolCursor = 0;

private:
    TezTerminalUI& m_terminal;
    std::atomic<uint64_t> m_total{0};
    std::atomic<uint64_t> m_done{0};
};

struct Options
{
    std::vector<std::string> source;
    int sample = 0;
    std::string size = "1024x768";
    std::string history;
    std::string shots = ".";
    bool offscreen = false;
    int bench = 0;
    std::string exportOnReady;
    std::string saveAs;
    std::string startView;
    int width = 1024, height = 768;
};

// What the worker builds; the window's thread turns it into document objects.
struct Loaded
{
    TezRef<TezVoxelOctree> octree;
    TezVector3<float> proportions{1.0f, 1.0f, 1.0f}; // the scan's, see TezVolumeData
    TezRef<TezIndexedMesh> mesh;
    bool opened = false; // a document, read already
    std::string problem;
};

Loaded LoadVolume(TezVolumeSourceArgs source, FILE* err)
{
    Loaded loaded;
    TezRef<TezVolumeData> images = source.Open("view", err);
    if (!images) {
        loaded.problem = "the source cannot be read";
        return loaded;
    }
    loaded.proportions = images->GetProportions();
    loaded.octree = TezVoxelOctree::CreateFromVolumeData(TezString("volume"), images, images->GetSpacing().x,
                                                         source.NativeBits(), 1024);
    if (!loaded.octree)
        loaded.problem = "the build was stopped or refused";
    return loaded;
}

Loaded LoadOctree(std::string const& path)
{
    Loaded loaded;
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Read);
    if (!archive) {
        loaded.problem = "cannot open " + path;
        return loaded;
    }
    TezRef<TezVoxelOctree> tree(new TezVoxelOctree());
    try {
        tree->Load(archive);
    } catch (std::exception const& error) {
        loaded.problem = path + " is not a readable octree: " + error.what();
        return loaded;
    }
    if (tree->GetTreeSize() <= 0)
        loaded.problem = path + " holds no octree";
    else
        loaded.octree = tree;
    return loaded;
}

std::string Stem(std::string const& path)
{
    std::string name = path;
    while (name.size() > 1 && name.back() == '/')
        name.pop_back();
    size_t const slash = name.rfind('/');
    if (slash != std::string::npos)
        name = name.substr(slash + 1);
    size_t const dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0)
        name = name.substr(0, dot);
    size_t const percent = name.find('%');
    if (percent != std::string::npos)
        name = name.substr(0, percent);
    while (!name.empty() && (name.back() == '_' || name.back() == '-'))
        name.pop_back();
    return name.empty() ? std::string("volume") : name;
}

// Mouse buttons and modifiers as the tool manager takes them: "first" is
// Ctrl, "second" is Shift.
struct Pointer
{
    double x = 0, y = 0;
    bool moved = false;
    bool left = false, middle = false, right = false;
    bool first = false, second = false;
    double lastLeftPress = -1.0;
};

class Viewer
{
public:
    Viewer(Options const& options, FILE* out, FILE* err) : m_options(options), m_out(out), m_err(err) {}
    int Run();

private:
    bool MakeWindowAndContext();
    void ReleaseWindowAndContext();
    bool StartLoading();
    void FinishLoading(Loaded loaded);
    // What needs no build goes through the loop as a finished one.
    void Ready(Loaded loaded);
    void Frame(bool standardTilted);
    void UpdateTitle();
    void ApplyCursor();
    void FlushMotion();
    void OnButton(int button, int action, int mods);
    void OnKey(int key, int action, int mods);
    void OnClose();
    void StandardView(int index);
    // The object tools of the keys M, R, S, L and O: each key turns its tool
    // on, and off again.
    bool ToggleObjectTool(int key);
    // Puts the widget at the mesh's middle, sized from the mesh.
    void PlaceWidget();
    void Screenshot();
    bool Save();
    int Bench();
    TezRef<TezHostDocument> Document() const;

    static Viewer* Of(GLFWwindow* window) { return static_cast<Viewer*>(glfwGetWindowUserPointer(window)); }

    Options m_options;
    FILE* m_out;
    FILE* m_err;
    GLFWwindow* m_glfw = nullptr;
    HWND m_window = nullptr;
    HDC m_dc = nullptr;
    HGLRC m_context = nullptr;
    std::unique_ptr<TezHostApplication> m_app;
    std::unique_ptr<ViewUI> m_ui;
    TezRef<TezRenderView> m_view;
    TezRef<TezToolManager> m_tools;
    TezRef<TezSceneMesh> m_mesh;
    TezRef<TezToolTransformObject> m_widgetTool; // move or rotate, a pick tool while on
    TezRef<TezTool> m_modalTool;                 // select or polyline, on the stack while on
    TezRef<TezToolPickOverlayPoint> m_pickPoint;
    std::future<Loaded> m_loading;
    bool m_building = false;
    std::string m_name;
    std::string m_savePath;
    Pointer m_pointer;
    bool m_quit = false;
    bool m_closeRefused = false;
    int m_shot = 0;
    int m_appliedCursor = -1;
    // Standard shapes in 1 to 3, the cursor files by their number + 3.
    GLFWcursor* m_cursors[13] = {};
    std::string m_title;
};

TezRef<TezHostDocument> Viewer::Document() const
{
    return m_app ? TezRef<TezHostDocument>(m_app->GetActiveDocument()) : nullptr;
}

bool Viewer::MakeWindowAndContext()
{
    int const width = m_options.width, height = m_options.height;
    if (m_options.offscreen) {
        m_window = TezGLPlatform::CreateOffscreenWindow(width, height);
    } else {
        if (!glfwInit()) {
            char const* why = nullptr;
            glfwGetError(&why);
            std::fprintf(m_err, "tez view: no window can be opened: %s\n", why ? why : "GLFW cannot start");
            return false;
        }
        glfwWindowHint(GLFW_CLIENT_API, GLFW_NO_API);
        m_glfw = glfwCreateWindow(width, height, "tez view", nullptr, nullptr);
        if (!m_glfw) {
            char const* why = nullptr;
            glfwGetError(&why);
            std::fprintf(m_err, "tez view: no window can be opened: %s\n", why ? why : "unknown reason");
            return false;
        }
        m_window = TezGLPlatform::WrapX11Window(glfwGetX11Display(), glfwGetX11Window(m_glfw));
    }
    int const code = TezOpenGLSupport::TezInitializeGLRC(m_window, m_context);
    if (code != TezOpenGLSupport::Success) {
        std::fprintf(m_err, "tez view: %s", TezOpenGLSupport::TezErrorString(code).c_str());
        return false;
    }
    m_dc = TezGLPlatform::GetDC(m_window);
    if (!TezGLPlatform::MakeCurrent(m_dc, m_context) || !TezOpenGLSupport::LoadEntryPoints()) {
        std::fprintf(m_err, "tez view: the GL context cannot be bound\n");
        return false;
    }
    m_app = std::make_unique<TezHostApplication>(m_context, m_window);
    m_ui = std::make_unique<ViewUI>(m_app->GetTerminalUI());
    TezUIManager::GetAppUIManager()->SetCallback(m_ui.get());

    TezRef<TezRenderViewManager> manager = TezRenderViewManager::GetAppRenderViewManager();
    m_view = manager->CreateCuda();
    int fbWidth = width, fbHeight = height;
    if (m_glfw)
        glfwGetFramebufferSize(m_glfw, &fbWidth, &fbHeight);
    m_view->Initialize(m_window, static_cast<unsigned>(fbWidth), static_cast<unsigned>(fbHeight));
    m_view->SetBackgroundColor({0.12f, 0.12f, 0.14f, 1.0f});
    m_view->GetCamera()->UsePerspective(true);
    m_tools = TezToolManager::Of(m_view.Get());
    return true;
}

void Viewer::ReleaseWindowAndContext()
{
    if (m_loading.valid()) {
        m_ui->m_stop = true;
        m_loading.wait();
    }
    if (m_view) {
        // GL objects go while the context is bound.
        m_view->ActivateContext();
        m_mesh = nullptr;
        m_widgetTool = nullptr;
        m_modalTool = nullptr;
        m_pickPoint = nullptr;
        m_tools = nullptr;
        if (m_app)
            m_app->SetActiveDocument(nullptr);
        m_view->SetScene(nullptr);
        TezRenderViewManager::GetAppRenderViewManager()->ReleaseRenderView(m_view);
        m_view = nullptr;
    }
    if (m_app) {
        TezUIManager::GetAppUIManager()->SetCallback(&m_app->GetTerminalUI());
        m_app.reset();
    }
    TezGLPlatform::MakeCurrent(nullptr, nullptr);
    if (m_context)
        TezOpenGLSupport::TezReleaseGLRC(m_context);
    if (m_dc)
        TezGLPlatform::ReleaseDC(m_window, m_dc);
    if (m_window)
        TezGLPlatform::DestroyWindow(m_window);
    for (GLFWcursor* cursor : m_cursors)
        if (cursor)
            glfwDestroyCursor(cursor);
    if (m_glfw)
        glfwDestroyWindow(m_glfw);
    if (!m_options.offscreen)
        glfwTerminate();
}

bool Viewer::StartLoading()
{
    std::vector<std::string> positional = m_options.source;
    // The phantom is written on the worker, before its build, the first time.
    std::string sampleFolder;
    if (m_options.sample > 0) {
        std::string const folder = "tez-view-sample-" + std::to_string(m_options.sample);
        if (!Exists(folder + "/slice" + std::to_string(10000 + m_options.sample - 1).substr(1) + ".png"))
            sampleFolder = folder;
        positional = {folder + "/slice%04d.png", "0", std::to_string(m_options.sample - 1)};
        m_name = "sample" + std::to_string(m_options.sample);
    }
    std::string const first = positional.empty() ? std::string() : positional[0];
    if (m_name.empty())
        m_name = Stem(first);

    if (positional.size() == 1 && EndsWith(first, ".mvne")) {
        TezRef<TezDocument> document = m_app->OpenDocument(TezString(first.c_str()));
        if (!document || document->GetLastError() != TezDocument::DocNoError) {
            std::fprintf(m_err, "tez view: %s is not a readable document\n", first.c_str());
            return false;
        }
        m_savePath = first;
        TezViewSession::StartFocusHistory(document);
        m_view->SetScene(document->GetScene());
        Loaded loaded;
        loaded.opened = true;
        Ready(loaded);
        return true;
    }

    TezRef<TezDocument> document = m_app->NewDocument();
    TezViewSession::StartFocusHistory(document);
    m_view->SetScene(document->GetScene());
    m_savePath = m_name + ".mvne";

    if (positional.size() == 1 && (EndsWith(first, ".stl") || EndsWith(first, ".obj") || EndsWith(first, ".ply"))) {
        TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromFile(TezString(first.c_str()));
        if (!mesh || mesh->GetNumTriangles() == 0) {
            std::fprintf(m_err, "tez view: %s holds no readable mesh\n", first.c_str());
            return false;
        }
        Loaded loaded;
        loaded.mesh = mesh;
        Ready(loaded);
        return true;
    }

    // A folder of slices as tez sample writes them.
    std::string const folderSlices = first + "/slice%04d.png";
    if (positional.size() == 1 && IsFolder(first) && Exists(first + "/slice0000.png")) {
        int last = 0;
        char name[64];
        for (;; ++last) {
            std::snprintf(name, sizeof name, "/slice%04d.png", last + 1);
            if (!Exists(first + name))
                break;
        }
        positional = {folderSlices, "0", std::to_string(last)};
    }

    TezVolumeSourceArgs source;
    bool const scan = positional.size() == 3 || IsFolder(first) || EndsWith(first, ".nrrd") ||
                      EndsWith(first, ".nhdr") || EndsWith(first, ".mhd") || EndsWith(first, ".mha") ||
                      EndsWith(first, ".dcm");
    if (scan) {
        std::string const problem = source.Parse(positional);
        if (!problem.empty()) {
            std::fprintf(m_err, "tez view: %s\n", problem.c_str());
            return false;
        }
    }
    FILE* err = m_err;
    m_building = true;
    m_ui->m_stop = false;
    // The build runs beside the window, which stays live and shows its
    // progress; Esc raises the stop flag that the builder polls.
    int const sample = m_options.sample;
    if (scan)
        m_loading = std::async(std::launch::async, [source, err, sampleFolder, sample] {
            if (!sampleFolder.empty() && TezWriteSampleStack(sampleFolder, sample).empty()) {
                Loaded failed;
                failed.problem = "cannot write the sample into " + sampleFolder;
                return failed;
            }
            return LoadVolume(source, err);
        });
    else
        m_loading = std::async(std::launch::async, [first] { return LoadOctree(first); });
    return true;
}

void Viewer::Ready(Loaded loaded)
{
    std::promise<Loaded> done;
    done.set_value(std::move(loaded));
    m_loading = done.get_future();
    m_building = true;
}

void Viewer::FinishLoading(Loaded loaded)
{
    m_building = false;
    TezRef<TezHostDocument> document = Document();
    if (loaded.octree) {
        TezRef<TezDocCubeVolume> volume = TezDocCubeVolume::Create(loaded.octree);
        if (loaded.proportions != TezVector3<float>(1.0f, 1.0f, 1.0f))
            volume->SetTransform(TezAnisotropicTransform<float>(loaded.proportions) * volume->GetTransform());
        // Opaque from 30% of the data's range up, as tez render shows it.
        TezCmdUpdateTransferFunction::Create(volume, {{0, 0}, {0.29f, 0}, {0.3f, 1}, {1, 1}})->Execute();
        volume->GetSceneObject()->SetColor({0.9f, 0.85f, 0.75f, 1.0f});
        volume->GetSceneObject()->SetProperty(TezSceneObject::Mappable, true);
        document->AddObject(volume);
        document->SetModified(true);
    } else if (loaded.mesh) {
        m_mesh = TezSceneMesh::Create(loaded.mesh, TezDefaultEffect::StaticType());
        m_mesh->SetColor({0.75f, 0.8f, 0.9f, 1.0f});
        m_mesh->SetProperty(TezSceneObject::Mappable, true);
        TezRef<TezScene> scene = document->GetScene();
        scene->AddChild(scene->GetRoot(), m_mesh);
    }
    if (TezRef<TezScene> scene = document->GetScene())
        scene->GetLight()->SetPosition({-2.0f, 3.0f, 6.0f});
    Frame(true);
}

// Fits the scene into the view, from the tilted standard view or from where
// the camera looks now.
void Viewer::Frame(bool standardTilted)
{
    TezRef<TezCameraView> camera = m_view->GetCamera();
    TezBox3<float> const box = m_view->GetBounds(false);
    if (standardTilted)
        camera->FrameStandardView(box, TezCameraView::Tilted);
    else
        camera->FrameBox(box, camera->GetEye(), camera->GetFocus(), camera->GetUp());
    m_view->Paint();
}

void Viewer::UpdateTitle()
{
    if (!m_glfw)
        return;
    std::string title = m_name;
    TezRef<TezHostDocument> document = Document();
    if (document && document->IsModified())
        title += " *";
    if (m_building) {
        int const percent = m_ui->Percent();
        title += percent >= 0 ? " - building " + std::to_string(percent) + "%" : " - loading";
        title += " (Esc stops)";
    }
    title += " - tez view";
    if (title != m_title) {
        m_title = title;
        glfwSetWindowTitle(m_glfw, title.c_str());
    }
}

void Viewer::ApplyCursor()
{
    if (!m_glfw || m_ui->m_cursor == m_appliedCursor)
        return;
    m_appliedCursor = m_ui->m_cursor;
    if (m_appliedCursor > 0 && m_appliedCursor < 10) {
        // The cursor's file from the resource tree, where it is installed.
        GLFWcursor*& loaded = m_cursors[3 + m_appliedCursor];
        if (!loaded) {
            TezString const path =
                TezResourceManager::GetCursorPath(static_cast<TezResourceManager::Cursors>(m_appliedCursor), false);
            TezImage icon;
            if (path.Length() > 0 && Exists(path.c_str()) && icon.Load(path.c_str())) {
                int const w = icon.GetWidth(), h = icon.GetHeight();
                std::vector<unsigned char> rgba(size_t(w) * size_t(h) * 4);
                if (icon.ReadPixels(rgba.data(), 4, size_t(w) * 4, true)) {
                    GLFWimage image{w, h, rgba.data()};
                    loaded = glfwCreateCursor(&image, w / 2, h / 2);
                }
            }
        }
        if (loaded) {
            glfwSetCursor(m_glfw, loaded);
            return;
        }
    }
    // Without the file a standard shape stands for it.
    int shape = 0, slot = 0;
    switch (m_appliedCursor) {
    case TezResourceManager::CursorCrossHair:
    case TezResourceManager::CursorPick:
    case TezResourceManager::CursorZoomWindow:
        shape = GLFW_CROSSHAIR_CURSOR, slot = 1;
        break;
    case TezResourceManager::CursorPan:
    case TezResourceManager::CursorOrbit:
    case TezResourceManager::CursorRotateX:
    case TezResourceManager::CursorRotateY:
    case TezResourceManager::CursorRotateZ:
        shape = GLFW_HAND_CURSOR, slot = 2;
        break;
    case TezResourceManager::CursorZoom:
        shape = GLFW_VRESIZE_CURSOR, slot = 3;
        break;
    default:
        break;
    }
    if (slot && !m_cursors[slot])
        m_cursors[slot] = glfwCreateStandardCursor(shape);
    glfwSetCursor(m_glfw, slot ? m_cursors[slot] : nullptr);
}

// Pointer motion is handed on once a loop turn, at its last position, so
// that a slow frame does not queue a paint for every motion event.
void Viewer::FlushMotion()
{
    if (!m_pointer.moved || m_building)
        return;
    m_pointer.moved = false;
    int const x = static_cast<int>(m_pointer.x), y = static_cast<int>(m_pointer.y);
    bool const f = m_pointer.first, s = m_pointer.second;
    if (m_pointer.left)
        m_tools->OnMouseDrag(x, y, f, s);
    else if (m_pointer.middle)
        m_tools->OnMouseMiddleDrag(x, y, f, s);
    else if (m_pointer.right)
        m_tools->OnMouseRightDrag(x, y, f, s);
    else
        m_tools->OnMouseMove(x, y, f, s);
}

void Viewer::OnButton(int button, int action, int mods)
{
    if (m_building)
        return;
    FlushMotion();
    int const x = static_cast<int>(m_pointer.x), y = static_cast<int>(m_pointer.y);
    bool const f = (mods & GLFW_MOD_CONTROL) != 0, s = (mods & GLFW_MOD_SHIFT) != 0;
    m_pointer.first = f;
    m_pointer.second = s;
    bool const press = action == GLFW_PRESS;
    switch (button) {
    case GLFW_MOUSE_BUTTON_LEFT: {
        m_pointer.left = press;
        if (!press) {
            m_tools->OnMouseUp(x, y, f, s);
            break;
        }
        double const now = glfwGetTime();
        bool const dbl = m_pointer.lastLeftPress >= 0 && now - m_pointer.lastLeftPress < 0.3;
        m_pointer.lastLeftPress = dbl ? -1.0 : now;
        if (dbl)
            m_tools->OnMouseDblClick(x, y, f, s);
        else
            m_tools->OnMouseDown(x, y, f, s);
        break;
    }
    case GLFW_MOUSE_BUTTON_MIDDLE:
        m_pointer.middle = press;
        press ? m_tools->OnMouseMiddleDown(x, y, f, s) : m_tools->OnMouseMiddleUp(x, y, f, s);
        break;
    case GLFW_MOUSE_BUTTON_RIGHT:
        m_pointer.right = press;
        press ? m_tools->OnMouseRightDown(x, y, f, s) : m_tools->OnMouseRightUp(x, y, f, s);
        break;
    default:
        break;
    }
}

void Viewer::StandardView(int index)
{
    TezVector3<float> eye, focus, up;
    m_view->CalcStandardView(index, 30.0f, eye, focus, up);
    TezRef<TezCommand> move = TezCmdMoveFocus::Create(m_view, eye, focus, 30.0f, up);
    Document()->GetFocusCommandManager()->Execute(move);
    m_view->Paint();
}

bool Viewer::ToggleObjectTool(int key)
{
    if (key != GLFW_KEY_M && key != GLFW_KEY_R && key != GLFW_KEY_S && key != GLFW_KEY_L && key != GLFW_KEY_O)
        return false;
    if (key == GLFW_KEY_O) {
        if (m_pickPoint) {
            m_tools->RemovePickTool(m_pickPoint);
            m_pickPoint = nullptr;
            return true;
        }
        FILE* out = m_out;
        m_pickPoint = TezToolPickOverlayPoint::Create(
            [out](TezRef<TezRenderView> view, int x, int y, unsigned long id, int pressedKey) {
                if (pressedKey != 0 || !view)
                    return;
                TezVector3<float> const p = view->GetCamera()->PointFromPixel(x, y);
                std::fprintf(out, "tez view: click at pixel (%d, %d), near point (%g, %g, %g), object %lu\n", x, y, p.x,
                             p.y, p.z, id);
                std::fflush(out);
            });
        m_tools->AddPickTool(m_pickPoint);
        return true;
    }
    bool const widgetKey = key == GLFW_KEY_M || key == GLFW_KEY_R;
    bool const wasMove = m_widgetTool && dynamic_cast<TezToolMoveObject*>(m_widgetTool.Get());
    bool const wasSelect = m_modalTool && dynamic_cast<TezToolSelection*>(m_modalTool.Get());
    if (widgetKey) {
        if (m_widgetTool) {
            m_widgetTool->RemoveFromScene();
            m_tools->RemovePickTool(m_widgetTool);
            m_widgetTool = nullptr;
            if ((key == GLFW_KEY_M) == wasMove) {
                m_view->Paint();
                return true;
            }
        }
        if (!m_mesh) {
            std::fprintf(m_err, "tez view: move and rotate work on a mesh\n");
            return true;
        }
        if (key == GLFW_KEY_M)
            m_widgetTool = TezToolMoveObject::Create();
        else
            m_widgetTool = TezToolRotateObject::Create();
        m_widgetTool->SetObject(TezRef<TezSceneObject>(m_mesh));
        m_tools->AddPickTool(m_widgetTool);
        PlaceWidget();
        m_view->Paint();
        return true;
    }
    if (m_modalTool) {
        m_tools->PopTool();
        m_modalTool = nullptr;
        if ((key == GLFW_KEY_S) == wasSelect) {
            m_view->Paint();
            return true;
        }
    }
    if (key == GLFW_KEY_S) {
        FILE* out = m_out;
        TezRef<TezSelection> selection = Document()->GetSelection();
        m_modalTool =
            TezToolSelection::Create([out, selection](TezRef<TezRenderView> view, int x0, int y0, int x1, int y1) {
                size_t const found = TezToolSelection::SelectBlock(view, selection, x0, y0, x1, y1);
                std::fprintf(out, "tez view: %zu object%s selected\n", found, found == 1 ? "" : "s");
                std::fflush(out);
            });
    } else {
        m_modalTool = TezToolDrawPolyline::Create();
    }
    m_tools->PushTool(m_modalTool);
    m_view->Paint();
    return true;
}

void Viewer::PlaceWidget()
{
    if (!m_widgetTool || !m_mesh)
        return;
    TezBox3<float> const box = m_mesh->GetBounds(true);
    m_widgetTool->SetTransform(TezTranslationTransform((box.GetMinimum() + box.GetMaximum()) * 0.5f));
    m_widgetTool->AddToScene(m_view->GetScene()->GetRoot(), 0.3f * (box.GetMaximum() - box.GetMinimum()).Length());
}

void Viewer::Screenshot()
{
    char name[64];
    std::string path;
    do {
        std::snprintf(name, sizeof name, "tez-view-%d.png", ++m_shot);
        path = m_options.shots + "/" + name;
    } while (Exists(path));
    TezViewSession::ExportMainWindow(m_view, TezString(path.c_str()));
    std::fprintf(m_out, "tez view: wrote %s\n", path.c_str());
    std::fflush(m_out);
}

bool Viewer::Save()
{
    TezRef<TezHostDocument> document = Document();
    if (!document)
        return false;
    try {
        document->Save(TezString(m_savePath.c_str()));
    } catch (std::exception const& error) {
        std::fprintf(m_err, "tez view: cannot save %s: %s\n", m_savePath.c_str(), error.what());
        return false;
    }
    std::fprintf(m_out, "tez view: saved %s\n", m_savePath.c_str());
    std::fflush(m_out);
    return true;
}

void Viewer::OnKey(int key, int action, int mods)
{
    if (action == GLFW_RELEASE) {
        if (key == GLFW_KEY_LEFT_CONTROL || key == GLFW_KEY_RIGHT_CONTROL || key == GLFW_KEY_LEFT_SHIFT ||
            key == GLFW_KEY_RIGHT_SHIFT)
            m_tools->OnModifierKeyChange((mods & GLFW_MOD_CONTROL) != 0, (mods & GLFW_MOD_SHIFT) != 0,
                                         (mods & GLFW_MOD_ALT) != 0);
        return;
    }
    bool const ctrl = (mods & GLFW_MOD_CONTROL) != 0, shift = (mods & GLFW_MOD_SHIFT) != 0;
    if (key == GLFW_KEY_LEFT_CONTROL || key == GLFW_KEY_RIGHT_CONTROL || key == GLFW_KEY_LEFT_SHIFT ||
        key == GLFW_KEY_RIGHT_SHIFT) {
        if (action == GLFW_PRESS)
            m_tools->OnModifierKeyChange(ctrl || key == GLFW_KEY_LEFT_CONTROL || key == GLFW_KEY_RIGHT_CONTROL,
                                         shift || key == GLFW_KEY_LEFT_SHIFT || key == GLFW_KEY_RIGHT_SHIFT,
                                         (mods & GLFW_MOD_ALT) != 0);
        return;
    }
    if (key == GLFW_KEY_ESCAPE) {
        if (m_building) {
            std::fprintf(m_err, "tez view: stopping the build\n");
            m_ui->m_stop = true;
        } else {
            OnClose();
        }
        return;
    }
    if (m_building)
        return;
    if (m_tools->OnKeyDown(key, ctrl, shift))
        return;
    if (!ctrl && ToggleObjectTool(key))
        return;
    // With a widget shown, undo and redo take the object steps.
    TezRef<TezCommandManager> focus =
        m_widgetTool ? Document()->GetCommandManager() : Document()->GetFocusCommandManager();
    if (!ctrl && key >= GLFW_KEY_1 && key <= GLFW_KEY_8) {
        StandardView(key - GLFW_KEY_1);
    } else if (ctrl && (key == GLFW_KEY_Z && !shift)) {
        focus->Undo();
        PlaceWidget();
        m_view->Paint();
    } else if (ctrl && (key == GLFW_KEY_Y || (key == GLFW_KEY_Z && shift))) {
        focus->Redo();
        PlaceWidget();
        m_view->Paint();
    } else if (ctrl && key == GLFW_KEY_S) {
        Save();
    } else if (!ctrl && (key == GLFW_KEY_P || key == GLFW_KEY_F12)) {
        Screenshot();
    } else if (!ctrl && (key == GLFW_KEY_HOME || key == GLFW_KEY_A)) {
        Frame(false);
    }
}

void Viewer::OnClose()
{
    TezRef<TezHostDocument> document = Document();
    if (!document || !document->IsModified() || m_closeRefused) {
        m_quit = true;
        return;
    }
    if (isatty(fileno(stdin))) {
        std::fprintf(m_err,
                     "tez view: save the changes to %s before closing? [y]es, [n]o, [c]ancel: ", m_savePath.c_str());
        std::fflush(m_err);
        char answer[16] = {};
        if (!std::fgets(answer, sizeof answer, stdin))
            answer[0] = 'c';
        if (answer[0] == 'y' || answer[0] == 'Y')
            m_quit = Save();
        else if (answer[0] == 'n' || answer[0] == 'N')
            m_quit = true;
        return;
    }
    // Nobody to ask: unsaved work is not dropped without a word. A second
    // close means it.
    std::fprintf(m_err, "tez view: %s has unsaved changes; Ctrl+S saves them, closing again drops them\n",
                 m_savePath.c_str());
    m_closeRefused = true;
}

int Viewer::Bench()
{
    using Clock = std::chrono::steady_clock;
    auto ms = [](Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); };
    int const w = m_view->GetCamera()->GetWidth(), h = m_view->GetCamera()->GetHeight();
    m_view->Paint(); // the first frame copies the pools and builds the GL objects
    std::vector<double> frames;
    Clock::time_point const start = Clock::now();
    m_tools->OnMouseMiddleDown(w / 2, h / 2, false, false);
    for (int i = 1; i <= m_options.bench; ++i) {
        Clock::time_point const before = Clock::now();
        // Each event is one orbit step and one repaint, as the window's loop
        // hands them on; the clock stops when GL has finished the frame.
        m_tools->OnMouseMiddleDrag(w / 2 + 8 * i, h / 2 + 3 * i, false, false);
        m_view->ActivateContext();
        glFinish();
        m_view->DeactivateContext();
        frames.push_back(ms(Clock::now() - before));
    }
    m_tools->OnMouseMiddleUp(w / 2 + 8 * m_options.bench, h / 2, false, false);
    double const total = ms(Clock::now() - start);
    std::vector<double> picks;
    for (int i = 0; i < 5; ++i) {
        Clock::time_point const before = Clock::now();
        m_view->Map();
        m_view->Pick(TezVector2<int>(w / 2, h / 2));
        picks.push_back(ms(Clock::now() - before));
    }
    std::sort(frames.begin(), frames.end());
    std::sort(picks.begin(), picks.end());
    std::fprintf(m_out,
                 "orbit event to repainted frame at %dx%d: median %.1f ms, worst %.1f ms over %d frames\n"
                 "continuous orbit: %.2f frames/s\n"
                 "pick under the pointer (map and read back): median %.1f ms\n",
                 w, h, frames[frames.size() / 2], frames.back(), m_options.bench, 1000.0 * m_options.bench / total,
                 picks[picks.size() / 2]);
    return 0;
}

int Viewer::Run()
{
    auto const started = std::chrono::steady_clock::now();
    TezTerminalUI::InstallInterruptHandler();
    TezTerminalUI::SetStopFlag(false);
    if (!MakeWindowAndContext()) {
        ReleaseWindowAndContext();
        return 1;
    }
    if (!StartLoading()) {
        ReleaseWindowAndContext();
        return 1;
    }

    if (m_glfw) {
        glfwSetWindowUserPointer(m_glfw, this);
        glfwSetCursorPosCallback(m_glfw, [](GLFWwindow* w, double x, double y) {
            Viewer* v = Of(w);
            v->m_pointer.x = x;
            v->m_pointer.y = y;
            v->m_pointer.moved = true;
        });
        glfwSetMouseButtonCallback(m_glfw, [](GLFWwindow* w, int b, int a, int m) { Of(w)->OnButton(b, a, m); });
        glfwSetScrollCallback(m_glfw, [](GLFWwindow* w, double, double dy) {
            Viewer* v = Of(w);
            if (!v->m_building && dy != 0.0)
                v->m_tools->OnMouseWheel(static_cast<int>(std::lround(dy * 60.0)), v->m_pointer.first,
                                         v->m_pointer.second);
        });
        glfwSetKeyCallback(m_glfw, [](GLFWwindow* w, int k, int, int a, int m) { Of(w)->OnKey(k, a, m); });
        glfwSetWindowCloseCallback(m_glfw, [](GLFWwindow* w) {
            glfwSetWindowShouldClose(w, GLFW_FALSE);
            Of(w)->OnClose();
        });
        glfwSetFramebufferSizeCallback(m_glfw, [](GLFWwindow* w, int width, int height) {
            Viewer* v = Of(w);
            if (width > 0 && height > 0) {
                v->m_view->Resize(static_cast<unsigned>(width), static_cast<unsigned>(height));
                v->m_view->Paint();
            }
        });
        glfwSetWindowRefreshCallback(m_glfw, [](GLFWwindow* w) { Of(w)->m_view->Paint(); });
        UpdateTitle();
        m_view->Paint();
        double const seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        std::fprintf(m_out, "tez view: window up after %.2f s\n", seconds);
        std::fflush(m_out);
    }

    int result = 0;
    while (!m_quit) {
        if (m_building && m_loading.wait_for(std::chrono::seconds(0)) == std::future_status::ready) {
            Loaded loaded = m_loading.get();
            m_building = false;
            if (!loaded.octree && !loaded.mesh && !loaded.opened) {
                std::fprintf(m_err, "tez view: %s\n",
                             m_ui->GetStopFlag() ? "the build was stopped" : loaded.problem.c_str());
                result = 1;
                break;
            }
            FinishLoading(loaded);
            std::fprintf(m_out, "tez view: ready after %.2f s\n",
                         std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
            std::fflush(m_out);
            if (!m_options.startView.empty())
                StandardView(TezCmdExportRenderViewImage::StandardViewIndex(TezString(m_options.startView.c_str())));
            if (!m_options.exportOnReady.empty())
                TezViewSession::ExportMainWindow(m_view, TezString(m_options.exportOnReady.c_str()));
            if (!m_options.saveAs.empty()) {
                m_savePath = m_options.saveAs;
                if (!Save()) {
                    result = 1;
                    break;
                }
            }
        }
        if (!m_building && m_options.bench > 0) {
            result = Bench();
            break;
        }
        if (!m_glfw) {
            if (!m_building)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            continue;
        }
        // Ctrl-C in the terminal: stop a build, otherwise close.
        if (m_app->GetTerminalUI().GetStopFlag()) {
            if (m_building) {
                m_ui->m_stop = true;
            } else {
                TezTerminalUI::SetStopFlag(false);
                OnClose();
            }
        }
        glfwWaitEventsTimeout(m_building ? 0.1 : 0.5);
        FlushMotion();
        if (m_ui->m_zoomAll) {
            m_ui->m_zoomAll = false;
            Frame(false);
        }
        ApplyCursor();
        UpdateTitle();
    }
    if (m_building && m_loading.valid()) {
        m_ui->m_stop = true;
        m_loading.wait();
        std::fprintf(m_err, "tez view: the build was stopped\n");
        result = 1;
    }
    if (result == 0 && !m_options.history.empty() && Document()) {
        if (!Document()->GetCommandManager()->ExportPython(TezString(m_options.history.c_str()))) {
            std::fprintf(m_err, "tez view: cannot write history %s\n", m_options.history.c_str());
            result = 1;
        }
    }
    ReleaseWindowAndContext();
    return result;
}

} // namespace

int TezViewCommand(TezArgs const& args, FILE* out, FILE* err)
{
    Options options;
    CLI::App cli("Shows slices, a saved octree, a mesh (STL, OBJ, PLY) or a .mvne document in a window.\n\n"
                 "SOURCE: a document FILE.mvne, a mesh file, an octree file (tez octree -o),\n"
                 "a folder of slices as tez sample writes them, or a volume as tez octree reads it\n"
                 "(PATTERN FIRST LAST, a DICOM folder, NRRD, MetaImage).\n\n" +
                     std::string(kKeys),
                 "tez view");
    cli.add_option("SOURCE", options.source, "what to show");
    cli.add_option("--sample", options.sample, "show the built-in phantom of N^3 voxels (written once beside)")
        ->check(CLI::Range(16, 1024));
    cli.add_option("--size", options.size, "window size WxH (default 1024x768)")->check(TezCliPictureSize(16, 8192));
    cli.add_option("--history", options.history, "write the session's script history here on exit");
    cli.add_option("--shots", options.shots, "folder of the screenshots (default: here)");
    cli.add_flag("--offscreen", options.offscreen, "draw off-screen, no window (with --bench, --export or --save-as)");
    cli.add_option("--bench", options.bench, "time N orbit frames and the pick, then exit")->check(CLI::Range(1, 1000));
    cli.add_option("--export", options.exportOnReady, "write the first frame to this picture once ready")
        ->check(TezCliImageName(false));
    cli.add_option("--view", options.startView, "start from this standard view, as its key does (front ... isometric)")
        ->check(CLI::IsMember({"front", "back", "right", "left", "top", "bottom", "tilted", "isometric"}));
    cli.add_option("--save-as", options.saveAs, "save the document to this .mvne file once ready");

    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    if (options.source.empty() == (options.sample == 0))
        return TezCliUsageError(cli, "give one SOURCE or --sample N", err);
    if (!options.source.empty() && options.source.size() != 1 && options.source.size() != 3)
        return TezCliUsageError(cli, "SOURCE is one FILE or FOLDER, or PATTERN FIRST LAST", err);
    TezParsePictureSize(options.size, options.width, options.height);
    if (options.offscreen && options.bench == 0 && options.exportOnReady.empty() && options.saveAs.empty())
        return TezCliUsageError(cli, "--offscreen needs --bench, --export or --save-as", err);
    return Viewer(options, out, err).Run();
}
