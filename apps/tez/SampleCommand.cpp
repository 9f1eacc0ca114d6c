// tez sample: writes the built-in phantom as a slice stack to try the other
// commands on.

#include "platform/System.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/SampleStack.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

#include <string>

int TezSampleCommand(TezArgs const& args, FILE* out, FILE* err)
{
    std::string folder;
    int size = 128;
    CLI::App cli("Writes the built-in CT-like phantom as a numbered PNG slice stack and prints its PATTERN FIRST "
                 "LAST.",
                 "tez sample");
    cli.add_option("folder", folder, "folder to write the slices into (made when missing)")->required();
    cli.add_option("--size", size, "voxels along each side (default 128)")->check(CLI::Range(2, 2048));
    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    // The slices are made in a hidden folder inside FOLDER and moved into
    // place when all are written: a stopped run leaves FOLDER as it was.
    TezHostApplication app;
    TezCreateDir(folder.c_str());
    std::string const hidden = folder + "/.tez-sample-" + std::to_string(getpid());
    app.GetTerminalUI().BeginStep("writing the sample");
    std::string const made = TezWriteSampleStack(hidden, size);
    app.GetTerminalUI().ClearProgress();
    bool const stopped = TezTerminalUI::StopRequested();
    bool moved = !made.empty() && !stopped;
    for (int k = 0; moved && k < size; ++k) {
        char name[32];
        std::snprintf(name, sizeof name, "/slice%04d.png", k);
        moved = std::rename((hidden + name).c_str(), (folder + name).c_str()) == 0;
    }
    std::error_code ignored;
    std::filesystem::remove_all(hidden, ignored);
    if (stopped) {
        std::fprintf(err, "tez sample: stopped; nothing written\n");
        return 1;
    }
    if (!moved) {
        if (!made.empty())
            std::fprintf(err, "tez sample: cannot move the slices into %s: %s\n", folder.c_str(), std::strerror(errno));
        return 1;
    }
    std::fprintf(out, "%s/slice%%04d.png 0 %d\n", folder.c_str(), size - 1);
    return 0;
}
