// The active document for Python: its volumes, undoable changes and history.

#include "core/Application.h"
#include "document/CommandManager.h"
#include "document/objects/DocCubeVolume.h"
#include "python/KernelBindings.h"
#include "python/KernelObjects.h"
#include "python/ScriptedCommands.h"
#include "tez/HostDocument.h"

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace py = pybind11;

namespace {

struct TezPyDocument
{
    TezRef<TezHostDocument> document;
};

TezRef<TezHostDocument> ActiveDocument()
{
    TezApplication* app = TezApplication::Instance();
    TezRef<TezDocument> document = app ? app->GetActiveDocument() : nullptr;
    return TezRef<TezHostDocument>(dynamic_cast<TezHostDocument*>(document.Get()));
}

TezRef<TezHostDocument> RequireActive()
{
    TezRef<TezHostDocument> document = ActiveDocument();
    if (!document)
        throw std::runtime_error("There is no active document; call new() or open() first.");
    return document;
}

std::vector<TezRef<TezDocCubeVolume>> Volumes(TezHostDocument const& document)
{
    std::vector<TezRef<TezDocCubeVolume>> volumes;
    for (TezRef<TezDocumentObject> const& object : document.GetObjects())
        if (auto* volume = dynamic_cast<TezDocCubeVolume*>(object.Get()))
            volumes.emplace_back(volume);
    return volumes;
}

TezRef<TezDocCubeVolume> VolumeAt(TezHostDocument const& document, int index)
{
    std::vector<TezRef<TezDocCubeVolume>> const volumes = Volumes(document);
    if (index < 0 || size_t(index) >= volumes.size())
        throw py::index_error("volume " + std::to_string(index) + " of " + std::to_string(volumes.size()));
    return volumes[size_t(index)];
}

std::vector<std::string> History(TezHostDocument& document)
{
    std::vector<std::string> lines;
    for (TezString const& line : document.GetCommandManager()->BuildPython())
        lines.emplace_back(line.c_str());
    return lines;
}

void ExportHistory(TezHostDocument& document, std::string const& path)
{
    if (!document.GetCommandManager()->ExportPython(TezString(path.c_str())))
        throw std::runtime_error("cannot write history " + path + ": " + std::strerror(errno));
}

// "module.active_document().function(arguments)" and a newline.
std::string DocumentCall(char const* function, std::string const& arguments)
{
    std::string const call = TezPyCallText("active_document", {});
    return call + "." + function + "(" + arguments + ")\n";
}

void Execute(TezHostDocument& document, TezRef<TezCommand> command)
{
    if (!document.GetCommandManager()->Execute(command))
        throw std::runtime_error("the command did not run");
}

void BindDocumentClass(py::module_& m)
{
    if (TezPyReuseClass<TezPyDocument>(m, "Document"))
        return;
    py::class_<TezPyDocument>(m, "Document",
                              "A document: its volumes, and the commands that changed it, with undo and redo.\n"
                              "new() and open() make one active; active_document() answers it.")
        .def_property_readonly("file_name",
                               [](TezPyDocument const& d) { return std::string(d.document->GetFileName().c_str()); })
        .def_property_readonly("modified", [](TezPyDocument const& d) { return d.document->IsModified(); })
        .def_property_readonly("volume_count", [](TezPyDocument const& d) { return Volumes(*d.document).size(); })
        .def(
            "add_volume",
            [](TezPyDocument& d, TezPyOctree const& octree) {
                std::string const line = octree.origin.empty()
                                             ? "# add_volume: a volume from data that have no script form (an array)\n"
                                             : DocumentCall("add_volume", octree.origin);
                TezRef<TezDocCubeVolume> volume = TezDocCubeVolume::Create(octree.tree);
                // Stretched to the scan's proportions, as tez render and tez view show it.
                if (octree.proportions != TezVector3<float>(1.0f, 1.0f, 1.0f))
                    volume->SetTransform(TezAnisotropicTransform<float>(octree.proportions) * volume->GetTransform());
                Execute(*d.document, TezPyCmdAddVolume::Create(d.document, volume, line));
                return Volumes(*d.document).size() - 1;
            },
            py::arg("octree"),
            "Adds the octree as a volume object, as an undoable command; answers its index. The history\n"
            "records the call that made the octree (build_octree of a source, or load_octree).")
        .def(
            "octree",
            [](TezPyDocument const& d, int index) {
                return TezPyOctree{VolumeAt(*d.document, index)->GetVoxelOctree(), std::string()};
            },
            py::arg("index"))
        .def(
            "transfer_function",
            [](TezPyDocument const& d, int index) {
                std::vector<std::pair<float, float>> points;
                for (TezVector2<float> const& p : VolumeAt(*d.document, index)->GetTransferFunction())
                    points.emplace_back(p[0], p[1]);
                return points;
            },
            py::arg("index"), "The (x, y) control points, x over 0..1 of the voxel range, y the opacity.")
        .def(
            "set_transfer_function",
            [](TezPyDocument& d, int index, std::vector<std::pair<float, float>> const& points) {
                if (points.size() < 2)
                    throw py::value_error("a transfer function needs at least two points");
                std::vector<TezVector2<float>> control;
                for (auto const& p : points)
                    control.emplace_back(p.first, p.second);
                std::string list;
                for (auto const& p : points) {
                    char pair[80];
                    std::snprintf(pair, sizeof pair, "(%.9g, %.9g)", double(p.first), double(p.second));
                    list += (list.empty() ? "" : ", ") + std::string(pair);
                }
                std::string const line =
                    DocumentCall("set_transfer_function", std::to_string(index) + ", [" + list + "]");
                Execute(*d.document, TezPyCmdSetTransferFunction::Create(VolumeAt(*d.document, index), control, line));
            },
            py::arg("index"), py::arg("points"),
            "Sets the control points (at least two, x rising over 0..1) as an undoable command.")
        .def_property_readonly("can_undo",
                               [](TezPyDocument const& d) { return d.document->GetCommandManager()->CanUndo(); })
        .def_property_readonly("can_redo",
                               [](TezPyDocument const& d) { return d.document->GetCommandManager()->CanRedo(); })
        .def("undo", [](TezPyDocument& d) { d.document->GetCommandManager()->Undo(); })
        .def("redo", [](TezPyDocument& d) { d.document->GetCommandManager()->Redo(); })
        .def(
            "history", [](TezPyDocument& d) { return History(*d.document); },
            "The commands so far as a Python script, one line each.")
        .def(
            "export_history", [](TezPyDocument& d, std::string const& path) { ExportHistory(*d.document, path); },
            py::arg("path"));
}

} // namespace

void TezBindDocuments(py::module_& m)
{
    BindDocumentClass(m);
    m.def(
        "active_document",
        []() -> py::object {
            TezRef<TezHostDocument> document = ActiveDocument();
            return document ? py::cast(TezPyDocument{document}) : py::none();
        },
        "The document that new() or open() made active, or None.");
    m.def(
        "undo", [] { RequireActive()->GetCommandManager()->Undo(); }, "Undoes the active document's last command.");
    m.def(
        "redo", [] { RequireActive()->GetCommandManager()->Redo(); },
        "Redoes the active document's last undone command.");
    m.def(
        "history", [] { return History(*RequireActive()); },
        "The active document's commands as a Python script, one line each.");
    m.def(
        "export_history", [](std::string const& path) { ExportHistory(*RequireActive(), path); }, py::arg("path"),
        "Writes the active document's history as a script that replays it.");
}
