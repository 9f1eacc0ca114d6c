#include "tez/ScriptBridge.h"

#include "core/Application.h"
#include "document/Document.h"
#include "document/DocumentCommands.h"
#include "document/ScriptManager.h"

#include <pybind11/embed.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

namespace py = pybind11;

namespace {

// The script function being called, for the argument errors' wording.
char const* g_function = "function";
// The module's Error type while a bridge lives (the module holds it).
PyObject* g_errorType = nullptr;

std::string TypeName(py::handle object) { return Py_TYPE(object.ptr())->tp_name; }

[[noreturn]] void Raise(PyObject* type, std::string const& message)
{
    PyErr_SetString(type, message.c_str());
    throw py::error_already_set();
}

// A string argument: str, or anything os.fspath turns into one.
std::optional<std::string> TextOf(py::handle object)
{
    if (py::isinstance<py::str>(object))
        return object.cast<std::string>();
    if (py::hasattr(object, "__fspath__")) {
        py::object path = py::module_::import("os").attr("fspath")(object);
        if (py::isinstance<py::str>(path))
            return path.cast<std::string>();
    }
    return std::nullopt;
}

void FlushPythonStreams()
{
    py::module_ sys = py::module_::import("sys");
    for (char const* name : {"stdout", "stderr"}) {
        py::object stream = sys.attr(name);
        if (!stream.is_none() && py::hasattr(stream, "flush"))
            stream.attr("flush")();
    }
}

// What the kernel's direct save forms do not record themselves.
void RecordCall(char const* function, py::args const& args)
{
    TezApplication* app = TezApplication::Instance();
    TezRef<TezDocument> document = app ? app->GetActiveDocument() : nullptr;
    if (!document)
        return;
    if (std::strcmp(function, "save") == 0)
        document->GetCommandManager()->Push(TezCmdDocumentSave::Create());
    else if (std::strcmp(function, "save_as") == 0 && args.size() == 1)
        document->GetCommandManager()->Push(TezCmdDocumentSaveAs::Create(TezString(TextOf(args[0])->c_str())));
    else if (std::strcmp(function, "export_main_window") == 0 || std::strcmp(function, "export_standard_view") == 0 ||
             std::strcmp(function, "export_animated_view") == 0 || std::strcmp(function, "move_focus") == 0) {
        // The view's pictures and camera moves, as they were called: their
        // commands' own lines would not replay them (the standard view
        // export always names "tilted").
        std::string line = std::string(app->GetScriptModuleName().c_str()) + "." + function + "(";
        for (size_t i = 0; i < args.size(); ++i)
            line += (i ? ", " : "") + std::string(py::str(py::repr(args[i])));
        document->GetCommandManager()->Push(TezCmdInsertPython::Create(TezString((line + ")\n").c_str())));
    }
}

py::object CallScriptFunction(TezCommand::CommandDef const& def, py::args const& args, py::kwargs const& kwargs)
{
    // Python buffers its own output; the kernel's log goes through C stdio.
    FlushPythonStreams();
    struct Scope
    {
        explicit Scope(char const* name) : outer(g_function) { g_function = name; }
        ~Scope() { g_function = outer; }
        char const* outer;
    } scope(def.name);

    void* result = nullptr;
    try {
        result = def.pyRun(args.ptr(), kwargs.ptr());
    } catch (py::error_already_set const&) {
        throw;
    } catch (py::builtin_exception const&) {
        throw;
    } catch (std::exception const& e) {
        std::fflush(stdout);
        Raise(g_errorType, e.what());
    }
    std::fflush(stdout);
    if (!result)
        Raise(g_errorType, std::string(def.name) + "(): no script parse method is installed");
    py::object answer = py::reinterpret_steal<py::object>(static_cast<PyObject*>(result));
    RecordCall(def.name, args);
    return answer;
}

py::object Answer(char rtn, double value)
{
    switch (rtn) {
    case 'i':
    case 'l':
        return py::int_(static_cast<long long>(value));
    case 'f':
    case 'd':
        return py::float_(value);
    case 'b':
        return py::bool_(value != 0.0);
    default:
        return py::none();
    }
}

// One argument as the run function sees it: args[i] points at text, number or integer.
struct Value
{
    std::string text;
    char const* textPointer = nullptr;
    float number = 0.0f;
    int integer = 0;
};

void Convert(char type, py::handle object, size_t position, Value& value, void*& pointer)
{
    auto wrongType = [&](char const* wanted) {
        Raise(PyExc_TypeError, std::string(g_function) + "() argument " + std::to_string(position) + " must be " +
                                   wanted + ", not " + TypeName(object));
    };
    switch (type) {
    case 's': {
        std::optional<std::string> text = TextOf(object);
        if (!text)
            wrongType("str");
        value.text = *text;
        value.textPointer = value.text.c_str();
        pointer = &value.textPointer;
        break;
    }
    case 'f':
        if (PyBool_Check(object.ptr()) || !(PyFloat_Check(object.ptr()) || PyLong_Check(object.ptr())))
            wrongType("float");
        value.number = static_cast<float>(PyFloat_AsDouble(object.ptr()));
        if (PyErr_Occurred())
            throw py::error_already_set();
        pointer = &value.number;
        break;
    case 'i': {
        if (PyBool_Check(object.ptr()) || !PyLong_Check(object.ptr()))
            wrongType("int");
        int overflow = 0;
        long long n = PyLong_AsLongLongAndOverflow(object.ptr(), &overflow);
        if (overflow || n < INT_MIN || n > INT_MAX)
            Raise(PyExc_OverflowError, std::string(g_function) + "() argument " + std::to_string(position) +
                                           " does not fit in a 32-bit int");
        value.integer = static_cast<int>(n);
        pointer = &value.integer;
        break;
    }
    default:
        Raise(PyExc_TypeError,
              std::string(g_function) + "(): unknown argument type '" + std::string(1, type) + "' in its format");
    }
}

} // namespace

void* TezScriptBridge::ParseMethod(TezScriptRunMethod run, char const* format, char const* rtnFormat, void* args,
                                   void* kwargs, void* rtnArgPtr)
{
    if (!args)
        return TezScriptManager::ParseMethod(run, format, rtnFormat, args, kwargs, rtnArgPtr);

    std::string types = format ? format : "";
    // A format ":name:types" carries its argument types behind the second colon.
    if (!types.empty() && types[0] == ':') {
        size_t colon = types.find(':', 1);
        types = colon == std::string::npos ? std::string() : types.substr(colon + 1);
    }
    py::tuple arguments = py::reinterpret_borrow<py::tuple>(static_cast<PyObject*>(args));
    if (kwargs && PyDict_Check(static_cast<PyObject*>(kwargs)) && PyDict_Size(static_cast<PyObject*>(kwargs)) > 0)
        Raise(PyExc_TypeError, std::string(g_function) + "() takes no keyword arguments");
    if (arguments.size() != types.size())
        Raise(PyExc_TypeError, std::string(g_function) + "() takes " + std::to_string(types.size()) +
                                   (types.size() == 1 ? " argument (" : " arguments (") +
                                   std::to_string(arguments.size()) + " given)");

    // Sized once: the array points into these values.
    std::vector<Value> values(types.size());
    std::vector<void*> pointers(types.size(), nullptr);
    for (size_t i = 0; i < types.size(); ++i)
        Convert(types[i], arguments[i], i + 1, values[i], pointers[i]);

    double result = run(nullptr, pointers.data(), static_cast<int>(pointers.size()));
    return Answer(rtnFormat ? rtnFormat[0] : 'v', result).release().ptr();
}

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

    module.def(
        "start",
        [] {
            if (TezScriptManager* manager = TezScriptManager::Instance())
                manager->SetExecutingMode(true);
        },
        "Begins a script run.");
    module.def(
        "stop",
        [] {
            if (TezScriptManager* manager = TezScriptManager::Instance())
                manager->SetExecutingMode(false);
        },
        "Ends a script run.");

    std::vector<TezCommand::CommandDef> definitions = TezCommand::GetCommandList();
    std::vector<TezCommand::CommandDef> const& queries = TezQuery::GetCommandList();
    definitions.insert(definitions.end(), queries.begin(), queries.end());
    for (TezCommand::CommandDef const& def : definitions) {
        if (!def.name || !def.pyRun || py::hasattr(module, def.name))
            continue;
        module.def(
            def.name, [def](py::args args, py::kwargs kwargs) { return CallScriptFunction(def, args, kwargs); },
            def.help ? def.help : "");
    }
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
