#pragma once
// The kernel objects as the Python bindings hold them: plain handles on the
// kernel's counted objects, shared by the binding files.

#include "mesh/IndexedMesh.h"
#include "tez/VolumeSourceArgs.h"
#include "volume/MemoryVolume.h"
#include "volume/VolumeData.h"
#include "volume/VoxelOctree.h"

#include <pybind11/pybind11.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

struct TezPyVolume
{
    TezRef<TezVolumeData> data;
    // How it was opened (null for arrays): the bits it holds and the checks
    // after reading.
    std::shared_ptr<TezVolumeSourceArgs> source;
    int bits = 8;
    // The call that opens it again, for histories; empty for arrays.
    std::string origin;
};

struct TezPyOctree
{
    TezRef<TezVoxelOctree> tree;
    // The call that makes it again, for histories; empty when there is none.
    std::string origin;
    // The source scan's spacing along y and z over x, which pictures keep
    // (an octree file holds one voxel size: a loaded tree draws as cubes).
    TezVector3<float> proportions{1.0f, 1.0f, 1.0f};
};

struct TezPyMesh
{
    TezRef<TezIndexedMesh> mesh;
};

// True, after setting module.name to the existing class, when T is bound
// already in this interpreter (a second module or a second binding).
template <class T>
bool TezPyReuseClass(pybind11::module_& module, char const* name)
{
    if (pybind11::detail::type_info* info = pybind11::detail::get_type_info(typeid(T))) {
        module.attr(name) = pybind11::handle(reinterpret_cast<PyObject*>(info->type));
        return true;
    }
    return false;
}

// The bits to read a volume at: 8 or 16, or 0 for the source's own;
// ValueError for others.
int TezPyVolumeBits(TezPyVolume const& volume, int bits);
// The whole volume in memory at 8 or 16 bits, with the GIL released.
TezRef<TezMemoryVolume> TezPyReadGrid(TezPyVolume const& volume, int bits);
// The source's checks after its voxels were read: Error when they fail,
// their notes as warnings.
void TezPyAcceptAfterRead(TezPyVolume const& volume);

// "module.function(arguments)" with the script module's name (the
// application's), for the calls recorded in histories.
std::string TezPyCallText(char const* function, std::vector<std::string> const& arguments);
// A Python literal of the text.
std::string TezPyQuote(std::string const& text);

// The text written to a FILE* by `write`, with "tez COMMAND: " or "tez: " taken off
// each line; for the messages of the host's argument helpers.
std::string TezPyCaptureMessages(char const* command, std::function<void(FILE*)> const& write);

// Each line of the text as a Python UserWarning.
void TezPyWarnLines(std::string const& text);
