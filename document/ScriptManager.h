#pragma once
// TezScriptManager: the document's history as script text, line by line.
//
// It holds two views of the script: the live view (the running history of the
// active command manager) and the merged view (the document's stored script
// joined with the live history). It knows each script function's parameters
// from its help text ("Parameters:\n" then "    name - description" lines,
// one per format character) and takes a line apart as one call of the fixed
// shape [x =] module.function(arg, arg, ...) without running Python. Line
// flags: bit 0, rebuilt from edited parameters (a refresh keeps it); bit 1,
// commented out. Nothing here throws on bad script text.
//
// Hosts derive it, store the instance in m_instance and implement Initialize:
// once, install ParseMethod with TezCommand::SetParseMethod, call
// BuildCommandList(TezCommand::GetCommandList()), fill commandNames in the
// same order, then install the real parse method again.

#include "document/CommandManager.h"

#include <vector>

class TEZ_API TezScriptManager
{
public:
    struct Parameter
    {
        char type = '?'; // the format character, '?' for an extra argument
        TezString name;
        TezString description;
        TezString value;
    };

    struct CommandDef
    {
        char rtnArg = 0;
        void* rtnArgPtr = nullptr;
        TezScriptRunMethod runMethod = nullptr;
        TezCommand::CommandDef def{};
        TezString description;
        TezString prefix;
        TezString suffix;
        TezString format;
        std::vector<Parameter> params;
        size_t declared = 0; // parameters from the help text
    };

    static TezScriptManager* Instance() { return m_instance; }
    virtual void Initialize() = 0;

    std::vector<TezString> const& GetScript() const { return m_useMerged ? m_mergedScript : m_liveScript; }
    std::vector<int> const& GetScriptFlags() const { return m_useMerged ? m_mergedFlags : m_liveFlags; }
    std::vector<CommandDef>& GetCommandList();
    std::vector<TezString>& GetCommandListNames();

    // Ignored while executing.
    void SetDocScript(std::vector<TezString> const& lines);
    std::vector<TezString> MergeDocScript(std::vector<TezString> const& lines);
    void RefreshScript(bool useMerged);
    bool SetActiveScriptLine(int line);
    int GetActiveScriptLine() const { return m_activeScriptLine; }
    int GetActiveScriptCommand() const { return m_activeScriptCommand; }
    bool SetNewParamValue(int command, int param, TezString const& value);
    void SetScriptCommentFlag(int line, bool on);
    void SetExecutingMode(bool on);
    bool GetExecutingMode() const { return m_executing; }

    void SetExecutingScript(std::vector<TezString> const& script) { m_executingScript = script; }
    std::vector<TezString> const& GetExecutingScript() const { return m_executingScript; }
    void SetExecutingFlags(std::vector<int> const& flags) { m_executingFlags = flags; }
    std::vector<int> const& GetExecutingFlags() const { return m_executingFlags; }
    void SetExecutingLine(int line) { m_executingLine = line; }
    int GetExecutingLine() const { return m_executingLine; }

    // The parse method used while describing commands: records its arguments
    // in the instance's "last" fields and answers null.
    static void* ParseMethod(TezScriptRunMethod run, char const* format, char const* rtnFormat, void* args,
                             void* kwargs, void* rtnArgPtr);

    TezScriptRunMethod GetLastRunMethod() const { return m_lastRunMethod; }
    char const* GetLastFormat() const { return m_lastFormat; }
    char const* GetLastRtnArg() const { return m_lastRtnArg; }
    void* GetLastRtnArgPtr() const { return m_lastRtnArgPtr; }

protected:
    TezScriptManager() = default;
    virtual ~TezScriptManager() = default;

    void BuildCommandList(std::vector<TezCommand::CommandDef> const& definitions);
    bool ParseScriptLine(int line);
    // Steps of ParseScriptLine: the command's index by name (-1 when none),
    // the parameters from the line's arguments, the defaults for the empty
    // ones (true when any was filled).
    int FindCommand(TezString const& name);
    void SetParameters(CommandDef& entry, std::vector<TezString> const& arguments);
    bool FillDefaults(CommandDef& entry);
    void UpdateActiveScriptLine();

    TezScriptRunMethod GetCommandRunMethod(TezCommand::CommandDef const& def);
    char const* GetCommandFormat(TezCommand::CommandDef const& def);
    char const* GetCommandRtnArg(TezCommand::CommandDef const& def);
    void* GetCommandRtnArgPtr(TezCommand::CommandDef const& def);

    static TezScriptManager* m_instance;

    std::vector<TezString> m_liveScript;
    std::vector<int> m_liveFlags;
    std::vector<TezString> m_mergedScript;
    std::vector<int> m_mergedFlags;
    std::vector<TezString> m_docScript;
    std::vector<TezString> m_executingSnapshot;
    bool m_useMerged = false;
    int m_liveStart = -1;
    int m_mergedStart = -1;
    bool m_executing = false;
    std::vector<TezString> m_executingScript;
    std::vector<int> m_executingFlags;
    int m_executingLine = 0;
    std::vector<TezString> m_commandNames;
    std::vector<CommandDef> m_commandList;
    TezScriptRunMethod m_lastRunMethod = nullptr;
    char const* m_lastFormat = nullptr;
    char const* m_lastRtnArg = nullptr;
    void* m_lastRtnArgPtr = nullptr;
    int m_activeScriptLine = -1;
    int m_activeScriptCommand = -1;

private:
    std::vector<TezString>& View() { return m_useMerged ? m_mergedScript : m_liveScript; }
    std::vector<int>& Flags() { return m_useMerged ? m_mergedFlags : m_liveFlags; }
};
