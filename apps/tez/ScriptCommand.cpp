#include "document/CommandManager.h"
#include "document/Document.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/ScriptBridge.h"

#include <cerrno>
#include <cstring>

namespace {

char const* const kUsage = "usage: tez script run FILE [--history OUT.py] [ARG...]\n";

int Usage(FILE* err, std::string const& problem)
{
    std::fprintf(err, "tez script: %s\n%s", problem.c_str(), kUsage);
    return 2;
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

    TezHostApplication app;
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
    return code;
}
