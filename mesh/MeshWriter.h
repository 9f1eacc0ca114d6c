#pragma once
// TezMeshWriter: writes a TezIndexedMesh in the format its file name's
// extension names.
//
//   .stl  binary, or text when ascii is set (face normals from the positions)
//   .obj  text: positions, vertex normals and faces ("f a//a b//b c//c")
//   .ply  binary little-endian, or text when ascii is set: x y z nx ny nz
//         per vertex and one list of three int indices per face
//
// Extensions are matched without regard to case. Write answers false for an
// unknown extension or a failed write (errno tells why); a half-written
// file is removed. Nothing is thrown.

#include "mesh/IndexedMesh.h"

#include <string>

class TEZ_API TezMeshWriter
{
public:
    enum class Format { Unknown, Stl, Obj, Ply };

    static Format FormatForName(std::string const& path);
    static bool Write(TezRef<TezIndexedMesh> const& mesh, std::string const& path, bool ascii);
};
