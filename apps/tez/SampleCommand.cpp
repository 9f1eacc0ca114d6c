// tez sample: writes the built-in phantom as a slice stack to try the other
// commands on.

#include "tez/CommandLine.h"
#include "tez/SampleStack.h"

#include <string>

int TezSampleCommand(TezArgs const& args, FILE* out, FILE* err)
{
    std::string folder;
    int size = 128;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--size" && i + 1 < args.size()) {
            try {
                size_t used = 0;
                size = std::stoi(args[++i], &used);
                if (used != args[i].size())
                    size = 0;
            } catch (std::exception const&) {
                size = 0;
            }
            if (size < 2 || size > 2048) {
                std::fprintf(err, "tez sample: --size must be 2 to 2048\nusage: tez sample FOLDER [--size N]\n");
                return 2;
            }
        } else if (folder.empty() && !args[i].empty() && args[i][0] != '-') {
            folder = args[i];
        } else {
            std::fprintf(err, "tez sample: unexpected argument '%s'\nusage: tez sample FOLDER [--size N]\n",
                         args[i].c_str());
            return 2;
        }
    }
    if (folder.empty()) {
        std::fprintf(err, "tez sample: missing FOLDER\nusage: tez sample FOLDER [--size N]\n");
        return 2;
    }
    std::string const pattern = TezWriteSampleStack(folder, size);
    if (pattern.empty())
        return 1;
    std::fprintf(out, "%s 0 %d\n", pattern.c_str(), size - 1);
    return 0;
}
