#include "tez/ScriptBridge.h"

#include "python/KernelBindings.h"
#include "tez/ScriptCalls.h"

#include "core/Application.h"

#include <pybind11/embed.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

namespace py = pybind11;

namespace {

// The module's Error type while a bridge lives (the module holds it).
PyObject* g_errorType = nullptr;

void FlushPythonStreams()
{
    py::module_ sys = py::module_::import("sys");
    for (char const* name : {"stdout", "stderr"}) {
        py::object stream = sys.attr(name);
        if (!stream.is_none() && py::hasattr(stream, "flush"))
            stream.attr("flush")();
    }
}

} // namespace

// ---- the interpreter ----

struct TezScriptBridge::Interpreter
{
    // Declared first so that it goes last.
    std::optional<py::scoped_interpreter> guard;
    py::object errorType;
    TezString moduleName;
};

TezScriptBridge::TezScriptBridge() : m_interpreter(std::make_unique<Interpreter>())
{
    TezApplication* app = TezApplication::Instance();
    if (!app)
        throw std::runtime_error("TezScriptBridge: scripts need a running application");
    if (!Py_IsInitialized())
        // The host keeps its own Ctrl-C handling (the stop flag of long work).
        m_interpreter->guard.emplace(false);

    // The module is made at run time rather than with PYBIND11_EMBEDDED_MODULE,
    // whose name is fixed when compiling: the name is the application's answer.
    TezString name = app->GetScriptModuleName();
    m_interpreter->moduleName = name;
    py::object moduleType = py::module_::import("types").attr("ModuleType");
    py::module_ module =
        py::reinterpret_borrow<py::module_>(moduleType(name.c_str(), "Script functions of the Tezcore kernel."));

    std::string errorName = std::string(name.c_str()) + ".Error";
    m_interpreter->errorType =
        py::reinterpret_steal<py::object>(PyErr_NewException(errorName.c_str(), PyExc_RuntimeError, nullptr));
    module.attr("Error") = m_interpreter->errorType;
    g_errorType = m_interpreter->errorType.ptr();

    TezScriptCalls::Bind(module, m_interpreter->errorType);
    // The kernel's operations, as the tezcore extension module has them.
    TezBindKernel(module);
    py::module_::import("sys").attr("modules")[name.c_str()] = module;
}

TezScriptBridge::~TezScriptBridge()
{
    if (Py_IsInitialized()) {
        py::dict modules = py::module_::import("sys").attr("modules");
        if (modules.contains(m_interpreter->moduleName.c_str()))
            PyDict_DelItemString(modules.ptr(), m_interpreter->moduleName.c_str());
    }
    g_errorType = nullptr;
    m_interpreter->errorType = py::object();
}

namespace {

// "message" for the kernel's errors, "Type: message" for Python's own.
std::string Describe(py::error_already_set const& e)
{
    py::handle value = e.value();
    // A syntax error's text repeats the file and line that lead the message.
    std::string text = e.matches(PyExc_SyntaxError) && py::hasattr(value, "msg")
                           ? std::string(py::str(value.attr("msg")))
                           : std::string(py::str(value));
    if (g_errorType && PyObject_IsInstance(value.ptr(), g_errorType) == 1)
        return text;
    std::string type = py::str(e.type().attr("__name__"));
    return text.empty() ? type : type + ": " + text;
}

// The innermost line of the script itself that the traceback passes.
int ScriptLine(py::error_already_set const& e, std::string const& name)
{
    if (e.matches(PyExc_SyntaxError)) {
        py::object filename = e.value().attr("filename");
        py::object lineno = e.value().attr("lineno");
        if (!filename.is_none() && filename.cast<std::string>() == name && !lineno.is_none())
            return lineno.cast<int>();
    }
    int line = 0;
    for (py::object tb = py::reinterpret_borrow<py::object>(e.trace()); !tb.is_none(); tb = tb.attr("tb_next")) {
        std::string file = py::str(tb.attr("tb_frame").attr("f_code").attr("co_filename"));
        if (file == name)
            line = tb.attr("tb_lineno").cast<int>();
    }
    return line;
}

} // namespace

int TezScriptBridge::RunText(std::string const& text, std::string const& name, std::vector<std::string> const& args)
{
    m_error.clear();
    try {
        py::module_ builtins = py::module_::import("builtins");
        py::list argv;
        argv.append(name);
        for (std::string const& arg : args)
            argv.append(arg);
        py::module_::import("sys").attr("argv") = argv;

        py::dict globals;
        globals["__name__"] = "__main__";
        globals["__file__"] = name;
        globals["__builtins__"] = builtins;
        // Bytes, so that the script's own coding declaration applies.
        py::object code = builtins.attr("compile")(py::bytes(text), name, "exec");
        builtins.attr("exec")(code, globals);
        FlushPythonStreams();
        return 0;
    } catch (py::error_already_set& e) {
        try {
            FlushPythonStreams();
        } catch (py::error_already_set&) {
        }
        if (e.matches(PyExc_SystemExit)) {
            py::object code = e.value().attr("code");
            if (code.is_none())
                return 0;
            if (py::isinstance<py::int_>(code))
                return code.cast<int>();
            m_error = py::str(code);
            return 1;
        }
        int line = ScriptLine(e, name);
        m_error = name + (line > 0 ? ":" + std::to_string(line) : std::string()) + ": " + Describe(e);
        return 1;
    }
}

int TezScriptBridge::RunFile(std::string const& path, std::vector<std::string> const& args)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        m_error = "cannot read script " + path + ": " + std::strerror(errno);
        return 1;
    }
    std::ostringstream text;
    text << file.rdbuf();

    try {
        py::object osPath = py::module_::import("os").attr("path");
        py::object folder = osPath.attr("dirname")(osPath.attr("abspath")(path));
        py::module_::import("sys").attr("path").attr("insert")(0, folder);
    } catch (py::error_already_set& e) {
        m_error = path + ": " + Describe(e);
        return 1;
    }
    return RunText(text.str(), path, args);
}
