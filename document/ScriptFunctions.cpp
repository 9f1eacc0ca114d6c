// The kernel's script functions, registered at load in one place so that
// their order is fixed: new, open, save, save_as, export_main_window,
// export_standard_view, export_animated_view, then move_focus.

#include "document/DocumentCommands.h"
#include "document/ExportCommands.h"
#include "document/ViewCommands.h"

namespace {

// Argument i of a run function's array, by the format's type.
TezString StringArg(void** args, int n, int i)
{
    return TezString(i < n && args[i] ? *static_cast<char const* const*>(args[i]) : "");
}
float FloatArg(void** args, int n, int i) { return i < n && args[i] ? *static_cast<float*>(args[i]) : 0.0f; }
int IntArg(void** args, int n, int i) { return i < n && args[i] ? *static_cast<int*>(args[i]) : 0; }

double Result(bool ok) { return ok ? 1.0 : 0.0; }

double RunNew(void*, void**, int) { return Result(TezCmdDocumentNew::Run()); }
double RunOpen(void*, void** a, int n) { return Result(TezCmdDocumentOpen::Run(StringArg(a, n, 0))); }
double RunSave(void*, void**, int) { return Result(TezCmdDocumentSave::Run()); }
double RunSaveAs(void*, void** a, int n) { return Result(TezCmdDocumentSaveAs::Run(StringArg(a, n, 0))); }
double RunExportMain(void*, void** a, int n) { return Result(TezCmdExportMainWindowImage::Run(StringArg(a, n, 0))); }
double RunExportStandard(void*, void** a, int n)
{
    return Result(TezCmdExportRenderViewImage::RunStandard(StringArg(a, n, 0), StringArg(a, n, 1)));
}
double RunExportAnimated(void*, void** a, int n)
{
    return Result(TezCmdExportRenderViewImage::RunAnimate(
        StringArg(a, n, 0), StringArg(a, n, 1), StringArg(a, n, 2), FloatArg(a, n, 3), FloatArg(a, n, 4),
        FloatArg(a, n, 5), FloatArg(a, n, 6), FloatArg(a, n, 7), FloatArg(a, n, 8), FloatArg(a, n, 9),
        FloatArg(a, n, 10), FloatArg(a, n, 11), FloatArg(a, n, 12), IntArg(a, n, 13)));
}

double RunMoveFocus(void*, void** a, int n)
{
    return Result(TezCmdMoveFocus::Run({FloatArg(a, n, 0), FloatArg(a, n, 1), FloatArg(a, n, 2)},
                                       {FloatArg(a, n, 3), FloatArg(a, n, 4), FloatArg(a, n, 5)},
                                       {FloatArg(a, n, 6), FloatArg(a, n, 7), FloatArg(a, n, 8)}, FloatArg(a, n, 9)));
}

void* PyNew(void* args, void* kwargs) { return TezCommand::CallParseMethod(&RunNew, nullptr, args, kwargs); }
void* PyOpen(void* args, void* kwargs) { return TezCommand::CallParseMethod(&RunOpen, "s", args, kwargs); }
void* PySave(void* args, void* kwargs) { return TezCommand::CallParseMethod(&RunSave, nullptr, args, kwargs); }
void* PySaveAs(void* args, void* kwargs) { return TezCommand::CallParseMethod(&RunSaveAs, "s", args, kwargs); }
void* PyExportMain(void* args, void* kwargs) { return TezCommand::CallParseMethod(&RunExportMain, "s", args, kwargs); }
void* PyExportStandard(void* args, void* kwargs)
{
    return TezCommand::CallParseMethod(&RunExportStandard, "ss", args, kwargs);
}
void* PyExportAnimated(void* args, void* kwargs)
{
    return TezCommand::CallParseMethod(&RunExportAnimated, "sssffffffffffi", args, kwargs);
}

void* PyMoveFocus(void* args, void* kwargs)
{
    return TezCommand::CallParseMethod(&RunMoveFocus, "ffffffffff", args, kwargs);
}

struct Registration
{
    Registration()
    {
        auto& list = TezCommand::GetCommandList();
        list.push_back({&PyNew, nullptr, nullptr, "new", "Create a new Morvane document.\n"});
        list.push_back({&PyOpen, nullptr, nullptr, "open",
                        "Open an existing Morvane document.\nParameters:\n    filename - The file name of the "
                        "Morvane document to open (ext:mvne)\n"});
        list.push_back({&PySave, nullptr, nullptr, "save", "Save the current Morvane document.\n"});
        list.push_back({&PySaveAs, nullptr, nullptr, "save_as",
                        "Save the current Morvane document to the given filename.\nParameters:\n    filename - "
                        "The name of the file to save the Morvane document to (ext-mvne)\n"});
        list.push_back({&PyExportMain, nullptr, nullptr, "export_main_window",
                        "Exports the Main window as a bitmap image file.\nParameters:\n    filename - name of "
                        "file to save image to (ext-png)\n"});
        list.push_back({&PyExportStandard, nullptr, nullptr, "export_standard_view",
                        "Exports the Render View window as a bitmap image file\nusing one of the standard camera "
                        "views.\nParameters:\n    filename - name of file to save image to (ext-png)\n    "
                        "view_name - name of standard camera view to use\n        (front, back, right, left, "
                        "top, bottom, tilted, isometric)\n"});
        list.push_back({&PyExportAnimated, nullptr, nullptr, "export_animated_view",
                        "Exports the Render View window as an optional series of bitmap images\nusing the "
                        "specified camera orientation to animate to.\nParameters:\n    base_name - base name "
                        "of file to save images to (ext-png)\n    post_fix - string to post fix onto base "
                        "name\n    extension - image file extension to use\n    fov - camera field of view\n "
                        "   eye_x - x coord of camera eye vector\n    eye_y - y coord of camera eye vector\n  "
                        "  eye_z - z coord of camera eye vector\n    foc_x - x coord of camera focus vector\n "
                        "   foc_y - y coord of camera focus vector\n    foc_z - z coord of camera focus "
                        "vector\n    up_x  - x coord of camera up vector\n    up_y  - y coord of camera up "
                        "vector\n    up_z  - z coord of camera up vector\n    frames - Number of frames to "
                        "animate\n"});
        // After the table's rows: the camera moves that a history replays.
        list.push_back({&PyMoveFocus, nullptr, nullptr, "move_focus",
                        "Moves the Render View camera to a pose, as one undoable step.\nParameters:\n    "
                        "eye_x - x coord of camera eye vector\n    eye_y - y coord of camera eye vector\n    "
                        "eye_z - z coord of camera eye vector\n    foc_x - x coord of camera focus vector\n    "
                        "foc_y - y coord of camera focus vector\n    foc_z - z coord of camera focus vector\n    "
                        "up_x  - x coord of camera up vector\n    up_y  - y coord of camera up vector\n    "
                        "up_z  - z coord of camera up vector\n    fov - camera field of view\n"});
    }
};

Registration const g_registration;

} // namespace
