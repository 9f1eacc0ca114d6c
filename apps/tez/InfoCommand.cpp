#include "core/Application.h"
#include "core/Events.h"
#include "core/Logger.h"
#include "core/Object.h"
#include "core/ResourceManager.h"
#include "core/UIManager.h"
#include "core/Version.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"

#include <algorithm>

namespace {

char const* Presence(bool present) { return present ? "present" : "absent"; }

} // namespace

int TezInfoCommand(TezArgs const& args, FILE* out, FILE* err)
{
    CLI::App cli("Starts the kernel without graphics and prints what it holds.", "tez info");
    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    TezHostApplication app;

    std::fprintf(out, "Tezcore %s\n", TezGetVersion());

    std::vector<std::string> names;
    for (auto const& [type, name] : TezRegisteredTypes())
        names.emplace_back(name.c_str());
    std::sort(names.begin(), names.end());
    std::fprintf(out, "registered types: %zu\n", names.size());
    for (std::string const& name : names)
        std::fprintf(out, "  %s\n", name.c_str());

    std::fprintf(out, "log folder: %s\n", TezLogger::GetLogFilePath());
    std::fprintf(out, "temp folder: %s\n", TezLogger::GetTempFilePath());
    std::fprintf(out, "user folder: %s\n", TezLogger::GetUserFilePath());

    std::fprintf(out, "managers:\n");
    std::fprintf(out, "  thread manager: %s\n", Presence(bool(app.GetThreadManager())));
    std::fprintf(out, "  event manager: %s\n", Presence(bool(app.GetEventManager())));
    std::fprintf(out, "  render view manager: %s\n", Presence(bool(app.GetRenderViewManager())));
    std::fprintf(out, "  UI manager: %s\n", Presence(bool(app.GetUIManager())));
    std::fprintf(out, "  resource manager: %s\n", Presence(bool(app.GetResourceManager())));
    std::fprintf(out, "  preference manager: %s\n", Presence(bool(app.GetPrefOptionManager())));
    std::fprintf(out, "resource folder: %s\n", app.GetResourceManager()->GetResourcePath().c_str());
    std::fprintf(out, "3D graphics: %s\n", app.GetRenderContext() ? "yes" : "no");
    std::fprintf(out, "script module: %s\n", app.GetScriptModuleName().c_str());
    return 0;
}
