#pragma once
// Undoable commands and the manager that runs and records them.
//
// The undo list (oldest first) is also the document's script: BuildPython
// turns it into Python text. Its oldest entry is the document's root command
// (new or open) and is never undone. Execute appends the command BEFORE it
// runs; on success the redo list is cleared, on failure the tail entry is
// dropped again. An undo limit never shortens the list (that would lose script
// text): it makes older commands release their undo data instead
// (ClearUndoMemory), so that they answer IsUndoable() false. A limit of 0 or
// -1 ("unlimited" in the option's label) releases each new command's data at
// once; that is how the limit has always behaved and hosts rely on it.
// Every list change reports TezEventCommandManagerStatusChanged.
//
// Script functions: each built-in command registers a CommandDef at load
// into TezCommand::GetCommandList(); the host's parse method (SetParseMethod)
// converts script arguments by the format string ("s", "f", "i") into the
// array a run function takes.

#include "core/Preferences.h"
#include "core/RefCounter.h"
#include "core/String.h"

#include <list>
#include <vector>

// A run function: (context, argument pointers, count) -> result.
using TezScriptRunMethod = double (*)(void*, void**, int);
// (run function, format, return format, script args, script kwargs, return slot).
using TezScriptParseMethod = void* (*)(TezScriptRunMethod, char const*, char const*, void*, void*, void*);

class TEZ_API TezCommand : public TezRefCounter
{
public:
    struct CommandDef
    {
        void* (*pyRun)(void*, void*);
        void (*defaultsMethod)(std::vector<TezString>*);
        bool (*validateMethod)(std::vector<TezString>*);
        char const* name;
        char const* help;
    };

    virtual bool Execute() = 0;
    virtual bool IsUndoable() = 0;
    virtual bool Undo() = 0;
    virtual bool Redo() = 0;
    virtual void ClearUndoMemory() {}
    virtual TezString BuildPython() const;

    static std::vector<CommandDef>& GetCommandList();
    static void SetParseMethod(TezScriptParseMethod method);
    static TezScriptParseMethod GetParseMethod();

    // What a pyRun entry does: hands the script call to the installed parse
    // method with the run function and its format; null without a method.
    static void* CallParseMethod(TezScriptRunMethod run, char const* format, void* args, void* kwargs);

protected:
    TezCommand() = default;
    static TezScriptParseMethod parseMethod;
};

// Script functions that answer without changing a document.
class TEZ_API TezQuery : public TezRefCounter
{
public:
    static std::vector<TezCommand::CommandDef>& GetCommandList();
    static void SetParseMethod(TezScriptParseMethod method);
    static TezScriptParseMethod GetParseMethod();

protected:
    TezQuery() = default;
    static TezScriptParseMethod parseMethod;
};

// Runs its commands as one: all of them, whatever fails, with no rollback.
class TEZ_API TezCommandBatch : public TezCommand
{
public:
    static TezRef<TezCommandBatch> Create();
    bool Execute() override;
    bool IsUndoable() override;
    bool Undo() override;
    bool Redo() override;
    void ClearUndoMemory() override;
    TezString BuildPython() const override;
    virtual void Add(TezRef<TezCommand> command);
    size_t GetCount() const { return m_commands.size(); }

protected:
    TezCommandBatch() = default;

private:
    std::vector<TezRef<TezCommand>> m_commands;
};

class TEZ_API TezCommandManager : public TezRefCounter
{
public:
    static TezRef<TezCommandManager> Create();
    // The active document's managers; need an active document.
    static TezRef<TezCommandManager> GetActiveCommandMgr();
    static TezRef<TezCommandManager> GetActiveFocusCommandMgr();
    // The "MaxUndoCommands" option, made by the first manager.
    static TezRef<TezPrefOptionInt> GetMaxUndoOption();

    ~TezCommandManager() override;
    virtual bool Execute(TezRef<TezCommand> command);
    virtual void Undo();
    virtual void Redo();
    virtual bool CanUndo();
    virtual bool CanRedo();
    // Records a command that has run already.
    virtual void Push(TezRef<TezCommand> command);
    virtual TezRef<TezCommand> PopUndoPushRedo();
    virtual TezRef<TezCommand> PopRedo();
    virtual void ClearUndo();
    virtual void ClearRedo();
    virtual void ClearAll();
    // One line each, newline-terminated: import, blank, start, the commands, stop.
    std::vector<TezString> BuildPython() const;
    virtual bool ExportPython(TezString const& path) const;
    void SetMaxUndoCommands(int limit);
    int GetMaxUndoCommands() const { return m_maxUndoCommands; }

    std::list<TezRef<TezCommand>> const& GetUndoList() const { return m_undoList; }
    std::list<TezRef<TezCommand>> const& GetRedoList() const { return m_redoList; }

protected:
    TezCommandManager();

private:
    void ReportChange();
    void ClearUndoMemoryIfNeeded();

    std::list<TezRef<TezCommand>> m_undoList;
    std::list<TezRef<TezCommand>> m_redoList;
    int32_t m_maxUndoCommands = -1;
};
