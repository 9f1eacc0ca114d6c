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
// The functions themselves come from TezScriptCalls, and the module also
// holds the kernel's operations that the tezcore extension module offers
// (TezBindKernel), so that a script can do what a Python program can.

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

private:
    struct Interpreter;
    std::unique_ptr<Interpreter> m_interpreter;
    std::string m_error;
};
