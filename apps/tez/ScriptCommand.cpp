#include "document/CommandManager.h"
#include "document/Document.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/ScriptBridge.h"

#include <cerrno>
#include <cstring>

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
