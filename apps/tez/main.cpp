// tez: the command-line host of the Tezcore kernel.

#include "core/Logger.h"
#include "core/UIManager.h"
#include "tez/CommandLine.h"
#include "tez/TerminalUI.h"

#include <exception>
#include <unistd.h>

int main(int argc, char** argv)
{
    TezTerminalUI::InstallInterruptHandler();
    TezArgs args(argv + 1, argv + argc);
    try {
        return TezRunCommandLine(args, stdout, stderr);
    } catch (std::exception const& e) {
        std::fprintf(stderr, "tez: %s\n", e.what());
        return 1;
    }
}
