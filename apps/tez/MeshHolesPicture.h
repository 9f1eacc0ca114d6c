#pragma once
// The picture of tez mesh fill-holes: the mesh as read (left) and as filled
// (right), side by side in one PNG (or any format by the name's extension),
// each a mesh document object drawn flat with its triangles' edges and the
// rims of its holes in red, so that what was open and what was closed can
// be seen at a glance.
//
// Drawing needs the command's application to hold a GL context: a command
// that may draw makes a TezOffscreenGL (tez/OffscreenGL.h) first and hands
// its handles to its TezHostApplication, which must die before it does.

#include "mesh/IndexedMesh.h"

#include <cstdio>
#include <string>

// 0 after naming the file on `out`; 1 after a message on `err` (no
// application with a GL context, no view, nothing written). The meshes are
// not changed.
int TezWriteHolesPicture(TezRef<TezIndexedMesh> before, TezRef<TezIndexedMesh> after, std::string const& path,
                         int width, int height, FILE* out, FILE* err);
