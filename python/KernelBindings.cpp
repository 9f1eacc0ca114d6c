#include "python/KernelBindings.h"

#include "python/KernelObjects.h"

#include "core/Application.h"

#include <pybind11/pybind11.h>

#include <cstdlib>
#include <stdexcept>

namespace py = pybind11;

namespace {

// The Error type of the module bound last, for the translator.
PyObject* g_kernelError = nullptr;

} // namespace

std::string TezPyCaptureMessages(char const* command, std::function<void(FILE*)> const& write)
{
    char* buffer = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&buffer, &size);
    if (!stream)
        throw std::runtime_error("cannot capture messages: out of memory");
    write(stream);
    std::fclose(stream);
    std::string text(buffer, size);
    std::free(buffer);

    std::string const prefix = std::string("tez ") + command + ": ", shortPrefix = "tez: ";
    std::string out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(start, end - start);
        if (line.compare(0, prefix.size(), prefix) == 0)
            line.erase(0, prefix.size());
        else if (line.compare(0, shortPrefix.size(), shortPrefix) == 0)
            line.erase(0, shortPrefix.size());
        if (!line.empty())
            out += (out.empty() ? "" : "\n") + line;
        start = end + 1;
    }
    return out;
}

std::string TezPyCallText(char const* function, std::vector<std::string> const& arguments)
{
    TezApplication* app = TezApplication::Instance();
    std::string text = std::string(app ? app->GetScriptModuleName().c_str() : "tez") + "." + function + "(";
    for (size_t i = 0; i < arguments.size(); ++i)
        text += (i ? ", " : "") + arguments[i];
    return text + ")";
}

std::string TezPyQuote(std::string const& text) { return py::repr(py::str(text)).cast<std::string>(); }

void TezPyWarnLines(std::string const& text)
{
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        std::string const line = text.substr(start, end - start);
        if (PyErr_WarnEx(PyExc_UserWarning, line.c_str(), 1) != 0)
            throw py::error_already_set();
        start = end + 1;
    }
}

void TezBindKernel(py::module_& module)
{
    if (!py::hasattr(module, "Error")) {
        std::string const name = py::str(module.attr("__name__")).cast<std::string>() + ".Error";
        module.attr("Error") =
            py::reinterpret_steal<py::object>(PyErr_NewException(name.c_str(), PyExc_RuntimeError, nullptr));
    }
    py::object error = module.attr("Error");
    // Never released: after an embedded interpreter ends, the next binding
    // replaces the pointer before any call can use it.
    g_kernelError = error.inc_ref().ptr();
    py::register_local_exception_translator([](std::exception_ptr thrown) {
        try {
            if (thrown)
                std::rethrow_exception(thrown);
        } catch (py::builtin_exception const& e) {
            // pybind11's own (ValueError, TypeError, ...) derive from runtime_error.
            e.set_error();
        } catch (std::runtime_error const& e) {
            PyErr_SetString(g_kernelError ? g_kernelError : PyExc_RuntimeError, e.what());
        }
    });

    TezBindVolumes(module);
    TezBindOctrees(module);
    TezBindMeshes(module);
    TezBindDocuments(module);
}
