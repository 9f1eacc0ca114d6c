#pragma once
// TezScriptBridge: the embedded Python interpreter and the script module.
//
// Constructing a bridge starts the interpreter (unless one runs already; that
// one is left running) and makes the module named by the application's
// GetScriptModuleName() importable. The module holds start() and stop()
// (executing mode of the script manager), Error (a RuntimeError: the kernel's
// failures, with its message unchanged) and one function per script function
// of TezCommand and TezQuery, documented by its help text. Needs a
// TezApplication; one bridge at a time, on the main thread.
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
// the bridge records their successful calls on the active command manager;
// "new" and "open" record their documents' root commands themselves. Thus a
// history exported after a script replays that script.

#include "document/CommandManager.h"

#include <memory>
#include <string>
#include <vector>

class TezScriptBridge
{
public:
    TezScriptBridge();
    ~TezScriptBridge();
    TezScriptBridge(TezScriptBridge const&) = delete;
    TezScriptBridge& operator=(TezScriptBridge const&) = delete;

    // Runs a script file as __main__ with sys.argv [path, args...] and the
    // file's folder first on sys.path. Answers the exit status: 0, the code of
    // a SystemExit, or 1 after an error, which GetError() then describes as
    // "PATH:LINE: message" (the innermost line of the script itself).
    int RunFile(std::string const& path, std::vector<std::string> const& args = {});
    // The same for script text, reported under `name`.
    int RunText(std::string const& text, std::string const& name, std::vector<std::string> const& args = {});
    std::string const& GetError() const { return m_error; }

    static void* ParseMethod(TezScriptRunMethod run, char const* format, char const* rtnFormat, void* args,
                             void* kwargs, void* rtnArgPtr);

private:
    struct Interpreter;
    std::unique_ptr<Interpreter> m_interpreter;
    std::string m_error;
};
