#include "document/CommandManager.h"
#include "document/Document.h"
#include "tez/Cli.h"
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

int TezScriptCommand(TezArgs const& args, FILE* out, FILE* err)
{
    std::string file, history;
    CLI::App cli("Runs Python scripts against the kernel.", "tez script");
    cli.require_subcommand(1);
    CLI::App* run = cli.add_subcommand("run", "run a Python script; the words after FILE are its arguments");
    run->add_option("file", file, "the script")->required();
    run->add_option("--history", history, "write the command history as a Python script")->type_name("OUT.py");
    // Everything after FILE belongs to the script.
    run->prefix_command();
    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    // Words before FILE are this command's own: a stray option there is a
    // mistyped one, not the script's.
    for (size_t i = 1; i < args.size() && args[i] != file; ++i) {
        if (args[i] == "--history")
            ++i;
        else if (args[i].rfind("--history=", 0) != 0 && args[i].size() > 1 && args[i][0] == '-')
            return TezCliUsageError(*run, "unknown option '" + args[i] + "'", err);
    }
    std::vector<std::string> const scriptArgs = run->remaining();

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
