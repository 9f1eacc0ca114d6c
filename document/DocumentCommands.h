#pragma once
// The built-in document commands, each with three faces: the command object
// (Execute/Undo/Redo, none of them undoable), a public static Run for direct
// calls that checks its parameters, logs, and throws through TezLogger::except
// with a user-facing message, and a script function registered at load
// ("new", "open", "save", "save_as"). The script functions' help texts are
// binding: the script manager reads the parameters out of them.

#include "document/CommandManager.h"

// A command that cannot be undone or redone.
class TEZ_API TezCmdOneWay : public TezCommand
{
public:
    bool IsUndoable() override { return false; }
    bool Undo() override { return false; }
    bool Redo() override { return false; }
};

class TEZ_API TezCmdDocumentNew : public TezCmdOneWay
{
public:
    static TezRef<TezCmdDocumentNew> Create();
    static bool Run();
    bool Execute() override;
    TezString BuildPython() const override;

protected:
    TezCmdDocumentNew() = default;
};

class TEZ_API TezCmdDocumentOpen : public TezCmdOneWay
{
public:
    static TezRef<TezCmdDocumentOpen> Create(TezString const& fileName);
    static bool Run(TezString const& fileName);
    // True when the opened document reports no error.
    bool Execute() override;
    TezString BuildPython() const override;

protected:
    explicit TezCmdDocumentOpen(TezString const& fileName) : m_fileName(fileName) {}

private:
    TezString m_fileName;
};

class TEZ_API TezCmdDocumentSave : public TezCmdOneWay
{
public:
    static TezRef<TezCmdDocumentSave> Create();
    static bool Run();
    bool Execute() override;
    TezString BuildPython() const override;

protected:
    TezCmdDocumentSave() = default;
};

class TEZ_API TezCmdDocumentSaveAs : public TezCmdOneWay
{
public:
    static TezRef<TezCmdDocumentSaveAs> Create(TezString const& fileName);
    static bool Run(TezString const& fileName);
    bool Execute() override;
    TezString BuildPython() const override;

protected:
    explicit TezCmdDocumentSaveAs(TezString const& fileName) : m_fileName(fileName) {}

private:
    TezString m_fileName;
};

// Free script text in the history: BuildPython gives the text unchanged.
class TEZ_API TezCmdInsertPython : public TezCmdOneWay
{
public:
    static TezRef<TezCmdInsertPython> Create(TezString const& text);
    bool Execute() override { return true; }
    TezString BuildPython() const override { return m_text; }

protected:
    explicit TezCmdInsertPython(TezString const& text) : m_text(text) {}

private:
    TezString m_text;
};
