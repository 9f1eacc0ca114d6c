#include "document/CommandManager.h"
#include "document/Document.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/ScriptBridge.h"

#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/gl/OpenGLSupport.h"
#include "render/views/RenderView.h"

#include <cerrno>
#include <cstring>

namespace {

char const* const kUsage = "usage: tez script run FILE [--history OUT.py] [ARG...]\n";

int Usage(FILE* err, std::string const& problem)
{
    std::fprintf(err, "tez script: %s\n%s", problem.c_str(), kUsage);
    return 2;
}

// Scripts draw into an off-screen render view of this size, which is also
// their main window, so that the export functions work without a display.
// The viewer's look: perspective, dark background; tez view's default size.
constexpr int kViewWidth = 1024;
constexpr int kViewHeight = 768;

// The GL side of a script run: a context on an off-screen window. Where no
// context can be made, scripts run without a view (exports then fail with
// their message).
struct ScriptGL
{
    ScriptGL()
    {
        window = TezGLPlatform::CreateOffscreenWindow(kViewWidth, kViewHeight);
        if (TezOpenGLSupport::TezInitializeGLRC(window, context) != TezOpenGLSupport::Success) {
            context = nullptr;
            return;
        }
        dc = TezGLPlatform::GetDC(window);
        if (!TezGLPlatform::MakeCurrent(dc, context) || !TezOpenGLSupport::LoadEntryPoints()) {
            TezGLPlatform::MakeCurrent(nullptr, nullptr);
            TezOpenGLSupport::TezReleaseGLRC(context);
            context = nullptr;
        }
    }
    ~ScriptGL()
    {
        TezGLPlatform::MakeCurrent(nullptr, nullptr);
        if (context)
            TezOpenGLSupport::TezReleaseGLRC(context);
        if (dc)
            TezGLPlatform::ReleaseDC(window, dc);
        TezGLPlatform::DestroyWindow(window);
    }
    HWND window = nullptr;
    HDC dc = nullptr;
    HGLRC context = nullptr;
};

TezRef<TezRenderView> MakeScriptView(HWND window)
{
    TezRef<TezRenderView> view = TezRenderViewManager::GetAppRenderViewManager()->CreateCuda();
    view->Initialize(window, kViewWidth, kViewHeight);
    view->SetBackgroundColor({0.12f, 0.12f, 0.14f, 1.0f});
    view->GetCamera()->UsePerspective(true);
    return view;
}

} // namespace

int TezScriptCommand(TezArgs const& args, FILE*, FILE* err)
{
    if (args.empty())
        return Usage(err, "missing sub-command");
    if (args[0] != "run")
        return Usage(err, "unknown sub-command '" + args[0] + "'");

    std::string file, history;
    std::vector<std::string> scriptArgs;
    bool options = true;
    for (size_t i = 1; i < args.size(); ++i) {
        std::string const& arg = args[i];
        if (options && arg == "--") {
            options = false;
        } else if (options && arg == "--history") {
            if (++i == args.size())
                return Usage(err, "--history needs a file name");
            history = args[i];
        } else if (options && arg.size() > 1 && arg[0] == '-' && file.empty()) {
            return Usage(err, "unknown option '" + arg + "'");
        } else if (file.empty()) {
            file = arg;
        } else {
            scriptArgs.push_back(arg);
        }
    }
    if (file.empty())
        return Usage(err, "missing script file");

    ScriptGL gl;
    TezHostApplication app(gl.context, gl.context ? gl.window : nullptr);
    TezRef<TezRenderView> view = gl.context ? MakeScriptView(gl.window) : nullptr;
    int code = 0;
    {
        TezScriptBridge bridge;
        code = bridge.RunFile(file, scriptArgs);
        if (code != 0 && !bridge.GetError().empty())
            std::fprintf(err, "tez: %s\n", bridge.GetError().c_str());
    }

    // Written whatever the outcome: after a failure it shows what ran.
    if (!history.empty()) {
        TezRef<TezDocument> document = app.GetActiveDocument();
        TezRef<TezCommandManager> manager = document ? document->GetCommandManager() : TezCommandManager::Create();
        if (!manager->ExportPython(TezString(history.c_str()))) {
            std::fprintf(err, "tez: cannot write history %s: %s\n", history.c_str(), std::strerror(errno));
            if (code == 0)
                code = 1;
        }
    }
    if (view) {
        // Scene objects free their GL objects as they go: with the context bound.
        view->ActivateContext();
        app.SetActiveDocument(nullptr);
        view->SetScene(nullptr);
        TezRenderViewManager::GetAppRenderViewManager()->ReleaseRenderView(view);
        view = nullptr;
    }
    return code;
}
