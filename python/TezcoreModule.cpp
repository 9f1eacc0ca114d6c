// tezcore: the Tezcore kernel as a Python extension module.
//
// Importing it makes the process's application (a TezHostApplication, with
// progress on stderr) unless a host made one already, and ends it when Python
// exits. The module holds the kernel's script functions (new, open, save,
// save_as, ..., start, stop) as `tez script run` has them, and the kernel's
// operations of TezBindKernel.

#include "TezcoreVersion.h"
#include "core/Logger.h"
#include "python/KernelBindings.h"
#include "tez/HostApplication.h"
#include "tez/ScriptCalls.h"

#include <pybind11/pybind11.h>

#include <cstdlib>
#include <memory>

namespace py = pybind11;

namespace {

std::unique_ptr<TezHostApplication>& Application()
{
    static std::unique_ptr<TezHostApplication> application;
    return application;
}

void StartApplication()
{
    if (TezApplication::Instance())
        return;
    // The kernel's progress notes belong in the log file; the terminal gets
    // warnings and errors unless MVLog asks for more.
    if (!std::getenv("MVLog"))
        TezLogger::SetConsoleLevel(TezLogger::Warn);
    Application() = std::make_unique<TezHostApplication>();
    // Documents and managers go while Python still runs.
    py::module_::import("atexit").attr("register")(py::cpp_function([] { Application().reset(); }));
}

} // namespace

PYBIND11_MODULE(tezcore, module)
{
    module.doc() = "The Tezcore kernel: volumes, octrees, pictures, meshes and documents.";
    module.attr("__version__") = TEZ_VERSION_STRING;
    StartApplication();
    // As in the embedded module: the script functions first, so that their
    // names stay theirs, then the kernel's operations.
    module.attr("Error") =
        py::reinterpret_steal<py::object>(PyErr_NewException("tezcore.Error", PyExc_RuntimeError, nullptr));
    TezScriptCalls::Bind(module, module.attr("Error"));
    TezBindKernel(module);
}
