#pragma once
// The tez program's command line: sub-commands, usage and exit codes.
// Exit codes: 0 success, 1 the work failed (or was stopped), 2 bad usage.
// A sub-command is one row of TezSubCommands(); it reads its arguments with
// TezCliParse (tez/Cli.h), so that -h/--help and usage errors behave alike
// everywhere. "tez help SUB" is "tez SUB --help". Long work names its steps
// on the host's TezTerminalUI (PlanSteps, BeginStep), checks
// TezTerminalUI::StopRequested after each, and writes its results through
// TezOutputFile, so that Ctrl-C leaves no half-written file.

#include <cstdio>
#include <string>
#include <vector>

using TezArgs = std::vector<std::string>;

struct TezSubCommand
{
    char const* name;
    char const* synopsis;
    char const* summary;
    int (*run)(TezArgs const& args, FILE* out, FILE* err);
};

std::vector<TezSubCommand> const& TezSubCommands();
void TezPrintUsage(FILE* stream);
// Runs one command line (args without the program name).
int TezRunCommandLine(TezArgs const& args, FILE* out, FILE* err);
// A picture size "WxH", from low to high pixels each way (the GL demos' default).
bool TezParsePictureSize(std::string const& value, int& width, int& height, int low = 16, int high = 8192);

// Sub-commands.
int TezInfoCommand(TezArgs const& args, FILE* out, FILE* err);
// tez script run FILE [--history OUT.py] [ARG...]
int TezScriptCommand(TezArgs const& args, FILE* out, FILE* err);

// volume
// SOURCE: a DICOM folder, a NRRD, MetaImage or raw file, or PATTERN FIRST LAST
// (tez/VolumeSourceArgs.h).
// tez octree SOURCE [--bpp 8|16] [--voxel-size S] [--memory-limit MiB] -o FILE
// tez octree --info FILE
int TezOctreeCommand(TezArgs const& args, FILE* out, FILE* err);
// tez sample FOLDER [--size N]
int TezSampleCommand(TezArgs const& args, FILE* out, FILE* err);
// tez tessellate SOURCE --iso V -o OUT.stl [--ascii]
int TezTessellateCommand(TezArgs const& args, FILE* out, FILE* err);

// mesh
// tez mesh COMMAND FILE [-o OUT.stl] [--ascii]; the commands are in tez/MeshCommand.h
int TezMeshCommand(TezArgs const& args, FILE* out, FILE* err);
// tez brep info|mesh|render|sample ...: B-reps of Rhino 3DM files
int TezBrepCommand(TezArgs const& args, FILE* out, FILE* err);

// render
// tez render [SOURCE | --octree FILE] [-o OUT.png] [options]; no
// arguments: the built-in sample to tez-render.png
int TezRenderCommand(TezArgs const& args, FILE* out, FILE* err);
// tez effects-demo [-o OUT.png] [--size WxH]: the sample meshes with the GL
// effects, drawn off-screen
int TezEffectsDemoCommand(TezArgs const& args, FILE* out, FILE* err);
// tez scene-demo [-o OUT] [--size WxH]: every kind of scene object in one
// frame of a render view, drawn off-screen and saved by the name's extension
int TezSceneDemoCommand(TezArgs const& args, FILE* out, FILE* err);
// tez volume-demo [-o OUT] [--size WxH]: a volume document object and a GL
// mesh sphere merged by depth in an off-screen GPU render view
int TezVolumeDemoCommand(TezArgs const& args, FILE* out, FILE* err);
// tez view SOURCE [--size WxH] [--history OUT.py]: an interactive window
int TezViewCommand(TezArgs const& args, FILE* out, FILE* err);
