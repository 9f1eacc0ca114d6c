#pragma once
// The picture of tez mesh fill-holes: the mesh as read (left) and as filled
// (right), side by side in one PNG (or any format by the name's extension),
// each a mesh document object drawn flat with its triangles' edges and the
// rims of its holes in red, so that what was open and what was closed can
// be seen at a glance. It makes a GL context of its own, and so runs where
// no host application exists yet.

#include "mesh/IndexedMesh.h"

#include <cstdio>
#include <string>

// 0 after naming the file on `out`; 1 after a message on `err` (no GL
// context, no view, nothing written). The meshes are not changed.
int TezWriteHolesPicture(TezRef<TezIndexedMesh> before, TezRef<TezIndexedMesh> after, std::string const& path,
                         int width, int height, FILE* out, FILE* err);
