// tez sample: writes the built-in phantom as a slice stack to try the other
// commands on.

#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/SampleStack.h"

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
    std::string const pattern = TezWriteSampleStack(folder, size);
    if (pattern.empty())
        return 1;
    std::fprintf(out, "%s 0 %d\n", pattern.c_str(), size - 1);
    return 0;
}
