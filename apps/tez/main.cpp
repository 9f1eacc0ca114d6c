// tez: the command-line host of the Tezcore kernel.

#include "core/Logger.h"
#include "core/UIManager.h"
#include "tez/CommandLine.h"
#include "tez/CrashReport.h"
#include "tez/TerminalUI.h"

#include <cstdlib>
#include <exception>
#include <unistd.h>

int main(int argc, char** argv)
{
    TezInstallCrashReport();
    TezTerminalUI::InstallInterruptHandler();
    // The kernel's progress notes belong in the log file; the terminal gets
    // warnings and errors unless MVLog asks for more.
    if (!std::getenv("MVLog"))
        TezLogger::SetConsoleLevel(TezLogger::Warn);
    TezArgs args(argv + 1, argv + argc);
    try {
        return TezRunCommandLine(args, stdout, stderr);
    } catch (std::exception const& e) {
        std::fprintf(stderr, "tez: %s\n", e.what());
        return 1;
    }
}
