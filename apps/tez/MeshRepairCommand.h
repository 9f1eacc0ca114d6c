#pragma once
// tez mesh fill-holes and tez mesh curvature: rows of the mesh sub-command
// table (tez/MeshCommand.h).
//
// fill-holes FILE [-o OUT] [--max-edges N] [--picture OUT.png]
//   removes degenerate and duplicate triangles, then fills every hole of at
//   most N boundary edges (all by default) and reports what it did; the holes
//   left are counted on the mesh it wrote, read back, as tez mesh info would.
//   --picture draws the mesh before (left) and after (right) with the rims
//   of its holes in red (tez/MeshHolesPicture.h).
// curvature FILE [--per-vertex OUT.csv] [--file-normals]
//   prints the smallest, mean and largest mean, Gaussian and principal
//   curvatures over the vertices; --per-vertex writes one CSV row per vertex.
//   Normals are made from the positions unless --file-normals keeps the file's.

#include "tez/MeshCommand.h"

void TezMeshFillHolesOptions(CLI::App& app, TezMeshArgs& args);
void TezMeshCurvatureOptions(CLI::App& app, TezMeshArgs& args);
int TezMeshFillHolesCommand(TezMeshArgs const& args, FILE* out, FILE* err);
int TezMeshCurvatureCommand(TezMeshArgs const& args, FILE* out, FILE* err);
