#pragma once
// TezBindKernel: the kernel's operations as Python functions and classes,
// bound once for both hosts of Python: the tezcore extension module and the
// embedded script module of `tez script run`.
//
// The module gets Error (a RuntimeError subclass; the one it holds already is
// kept) and every std::runtime_error of the kernel comes as Error with the
// kernel's text unchanged. Bad arguments raise ValueError or TypeError. Long
// work runs with the GIL released and stops on Ctrl-C (TezRunLongWork).
// Needs a TezApplication while calls run.
//
//   volumes    open_volume, image_stack, dicom_folder, nrrd, metaimage,
//              raw_volume, volume_from_numpy, write_sample_stack; Volume
//   octrees    build_octree, load_octree, Octree.save; render (a numpy
//              picture) and render_to_file
//   meshes     Mesh (from numpy vertex and index arrays), read_mesh,
//              Mesh.fill_holes, Mesh.save; tessellate (marching cubes)
//   documents  active_document, Document (volumes, transfer functions,
//              undo, redo, history), undo, redo, history, export_history;
//              adding a volume and setting a transfer function are
//              undoable commands whose history lines replay them
//
// Binding twice into one interpreter reuses the classes made the first time.

namespace pybind11 {
class module_;
} // namespace pybind11

void TezBindKernel(pybind11::module_& module);

// The parts, one file each.
void TezBindVolumes(pybind11::module_& module);
void TezBindOctrees(pybind11::module_& module);
void TezBindMeshes(pybind11::module_& module);
void TezBindDocuments(pybind11::module_& module);
