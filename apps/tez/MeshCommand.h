#pragma once
// tez mesh SUB-COMMAND FILE [-o OUT] [--ascii] [OPTION...]
//
// Every mesh sub-command reads one STL, OBJ or PLY file and may write the
// result by the name's extension: .stl, .obj or .ply (STL and PLY binary
// unless --ascii). A sub-command is one row of TezMeshSubCommands(): a
// function that adds its own options to its parser (may be null) and one
// that runs it.

#include "mesh/IndexedMesh.h"
#include "tez/CommandLine.h"
#include "tez/TerminalUI.h"

#include <limits>

namespace CLI {
class App;
}

struct TezMeshArgs
{
    std::string sub;    // the sub-command's name
    std::string input;  // FILE
    std::string output; // -o OUT, empty when not given
    bool ascii = false; // --ascii
    // fill-holes
    size_t maxEdges = std::numeric_limits<size_t>::max();
    std::string picture; // --picture OUT.png: before and after, holes in red
    // curvature
    std::string perVertex;
    bool fileNormals = false;
    // The progress line, planned as reading, the sub-command's work and
    // writing; the sub-command names its work with BeginStep.
    TezTerminalUI* ui = nullptr;
};

struct TezMeshSubCommand
{
    char const* name;
    char const* summary;
    void (*options)(CLI::App& app, TezMeshArgs& args);
    int (*run)(TezMeshArgs const& args, FILE* out, FILE* err);
};

std::vector<TezMeshSubCommand> const& TezMeshSubCommands();

// Reads args.input with progress; prints a message and returns null when
// it cannot (or was stopped), and a warning when the file gives no faces.
TezRef<TezIndexedMesh> TezMeshRead(TezMeshArgs const& args, FILE* err);
// Writes the mesh to args.output when one was given, through a temporary
// name so that a failed or stopped write leaves any older file; 0, or 1
// after a message.
int TezMeshWrite(TezRef<TezIndexedMesh> mesh, TezMeshArgs const& args, FILE* out, FILE* err);
// The holes of the mesh as its topology finds them: every sub-command that
// speaks of holes counts them here.
size_t TezMeshCountHoles(TezRef<TezIndexedMesh> mesh);
// After a step: 1 after "tez mesh SUB: stopped; nothing written" when Ctrl-C
// asked to stop, otherwise 0. Clears the progress line either way.
int TezMeshStopped(TezMeshArgs const& args, FILE* err);

// The sub-commands.
int TezMeshInfoCommand(TezMeshArgs const& args, FILE* out, FILE* err);
int TezMeshCheckCommand(TezMeshArgs const& args, FILE* out, FILE* err);
int TezMeshCleanCommand(TezMeshArgs const& args, FILE* out, FILE* err);
