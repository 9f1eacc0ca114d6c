#pragma once
// TezScriptCalls: the kernel's script functions as Python functions, for the
// embedded interpreter of `tez script run` and the tezcore extension module
// alike. Uses the Python C API but never starts an interpreter, so it links
// without libpython.
//
// Bind adds to a module start() and stop() (executing mode of the script
// manager) and one function per script function of TezCommand and TezQuery,
// documented by its help text; names the module has already are kept. The
// kernel's failures come as errorType (a RuntimeError subclass) with the
// kernel's message unchanged. Needs a TezApplication while calls run.
//
// ParseMethod is the parse method that script calls run through: it converts
// the positional arguments by the format ("s": str or path-like, "f": int or
// float, "i": int) into the run function's array, calls it, and answers a new
// Python reference (None for the return format "v"). A wrong count, keyword
// arguments or a wrong type raise TypeError, an int beyond 32 bits raises
// OverflowError. Called without arguments (the script manager describing a
// command) it only reports, as TezScriptManager::ParseMethod does.
//
// The direct forms of "save" and "save_as" run without command objects, so
// their successful calls are recorded on the active command manager; "new"
// and "open" record their documents' root commands themselves. Thus a history
// exported after a script replays that script.

#include "document/CommandManager.h"

namespace pybind11 {
class module_;
class handle;
} // namespace pybind11

struct TezScriptCalls
{
    static void* ParseMethod(TezScriptRunMethod run, char const* format, char const* rtnFormat, void* args,
                             void* kwargs, void* rtnArgPtr);
    static void Bind(pybind11::module_& module, pybind11::handle errorType);
};
