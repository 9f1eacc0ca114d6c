#include "tez/CommandLine.h"

#include "core/Version.h"

#include <cstdlib>
#include <cstring>

std::vector<TezSubCommand> const& TezSubCommands()
{
    static std::vector<TezSubCommand> const commands = {
        {"info", "tez info", "start the kernel without graphics and print what it holds", TezInfoCommand},
        {"script", "tez script run FILE [--history OUT.py]", "run a Python script; write the command history",
         TezScriptCommand},
        // volume
        {"octree", "tez octree SOURCE -o FILE",
         "build a voxel octree from slices or a scan (--info FILE: describe one)", TezOctreeCommand},
        {"sample", "tez sample FOLDER [--size N]", "write the built-in CT-like phantom as a PNG slice stack",
         TezSampleCommand},
        {"tessellate", "tez tessellate SOURCE -o OUT", "isosurface of slices or a scan as STL, OBJ or PLY (--iso V)",
         TezTessellateCommand},

        // mesh
        {"mesh", "tez mesh COMMAND FILE [-o OUT]",
         "read an STL, OBJ or PLY mesh; info, check, clean, fill-holes, curvature", TezMeshCommand},
        {"brep", "tez brep COMMAND FILE.3dm", "Rhino 3DM B-reps: info, mesh, render, sample (tez brep --help)",
         TezBrepCommand},

        // render
        {"render", "tez render [SOURCE | --octree FILE]", "ray cast slices, a scan or an octree into a picture",
         TezRenderCommand},
        {"effects-demo", "tez effects-demo [-o OUT.png] [--size WxH]",
         "draw the sample meshes with the GL effects side by side into a picture", TezEffectsDemoCommand},
        {"scene-demo", "tez scene-demo [-o OUT.png] [--size WxH]",
         "every kind of scene object in one frame of a render view, saved as an image", TezSceneDemoCommand},
        {"volume-demo", "tez volume-demo [-o OUT.png] [--size WxH]",
         "a volume document object and a GL mesh merged by depth in a GPU render view", TezVolumeDemoCommand},
        {"view", "tez view SOURCE | --sample N", "an interactive window on slices, an octree, a mesh or a document",
         TezViewCommand},

    };
    return commands;
}

void TezPrintUsage(FILE* stream)
{
    std::fprintf(stream,
                 "usage: tez <command> [arguments]\n"
                 "       tez <command> --help | tez help <command>\n"
                 "       tez --help | --version\n"
                 "\n"
                 "Tezcore %s: voxel volumes and surfaces from the command line.\n"
                 "\n"
                 "commands:\n",
                 TezGetVersion());
    for (TezSubCommand const& command : TezSubCommands())
        std::fprintf(stream, "  %s\n      %s\n", command.synopsis, command.summary);
    std::fprintf(stream, "\n"
                         "exit status: 0 done, 1 the work failed or was stopped (Ctrl-C), 2 bad usage\n"
                         "\n"
                         "environment:\n"
                         "  MVLog          log settings words, e.g. \"SETDEBUG SHOWLEVEL\"\n"
                         "  TEZ_LOG_ROOT   folder that holds the log, temp and user folders\n");
}

int TezRunCommandLine(TezArgs const& args, FILE* out, FILE* err)
{
    if (args.empty()) {
        TezPrintUsage(err);
        return 2;
    }
    std::string const& first = args[0];
    if (first == "--help" || first == "-h" || (first == "help" && args.size() == 1)) {
        TezPrintUsage(out);
        return 0;
    }
    if (first == "help") {
        if (args.size() == 2)
            for (TezSubCommand const& command : TezSubCommands())
                if (args[1] == command.name)
                    return command.run({"--help"}, out, err);
        std::fprintf(err, "tez help: unknown command '%s'\n\n", args[1].c_str());
        TezPrintUsage(err);
        return 2;
    }
    if (first == "--version" || first == "-V") {
        std::fprintf(out, "tez (Tezcore) %s\n", TezGetVersion());
        return 0;
    }
    for (TezSubCommand const& command : TezSubCommands())
        if (first == command.name)
            return command.run(TezArgs(args.begin() + 1, args.end()), out, err);
    std::fprintf(err, "tez: unknown command '%s'\n\n", first.c_str());
    TezPrintUsage(err);
    return 2;
}

bool TezParsePictureSize(std::string const& value, int& width, int& height, int low, int high)
{
    char* end = nullptr;
    long const w = std::strtol(value.c_str(), &end, 10);
    if (!end || *end != 'x')
        return false;
    long const h = std::strtol(end + 1, &end, 10);
    if (!end || *end != '\0' || w < low || h < low || w > high || h > high)
        return false;
    width = static_cast<int>(w);
    height = static_cast<int>(h);
    return true;
}
