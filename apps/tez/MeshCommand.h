#pragma once
// tez mesh SUB-COMMAND FILE [-o OUT.stl] [--ascii] [OPTION...]
//
// Every mesh sub-command reads one STL, OBJ or PLY file and may write the
// result as STL (binary unless --ascii). A sub-command is one row of
// TezMeshSubCommands(): add a row and a function to add a sub-command.
// Options the common part does not know are left in `rest` for the
// sub-command; one that takes none refuses them with TezMeshUsage.

#include "mesh/IndexedMesh.h"
#include "tez/CommandLine.h"

struct TezMeshArgs
{
    std::string sub;    // the sub-command's name
    std::string input;  // FILE
    std::string output; // -o OUT.stl, empty when not given
    bool ascii = false; // --ascii
    TezArgs rest;       // anything else, in order
};

struct TezMeshSubCommand
{
    char const* name;
    char const* options; // shown after FILE in the usage, may be ""
    char const* summary;
    int (*run)(TezMeshArgs const& args, FILE* out, FILE* err);
};

std::vector<TezMeshSubCommand> const& TezMeshSubCommands();

// Prints "tez mesh SUB: problem" and the usage; returns 2.
int TezMeshUsage(FILE* err, std::string const& sub, std::string const& problem);
// Reads args.input; prints a message and returns null when it cannot, and a
// warning when the file gives no faces.
TezRef<TezIndexedMesh> TezMeshRead(TezMeshArgs const& args, FILE* err);
// Writes the mesh to args.output when one was given; 0, or 1 after a message.
int TezMeshWrite(TezRef<TezIndexedMesh> mesh, TezMeshArgs const& args, FILE* out, FILE* err);
// The holes of the mesh as its topology finds them: every sub-command that
// speaks of holes counts them here.
size_t TezMeshCountHoles(TezRef<TezIndexedMesh> mesh);

// The sub-commands.
int TezMeshInfoCommand(TezMeshArgs const& args, FILE* out, FILE* err);
int TezMeshCheckCommand(TezMeshArgs const& args, FILE* out, FILE* err);
int TezMeshCleanCommand(TezMeshArgs const& args, FILE* out, FILE* err);
