#include "document/DocumentCommands.h"

#include "core/Application.h"
#include "core/Logger.h"
#include "document/Document.h"

namespace {

TezString Module()
{
    TezApplication* app = TezApplication::Instance();
    return app ? app->GetScriptModuleName() : TezString("");
}

TezString ScriptLine(char const* function, TezString const& arguments)
{
    TezString line = Module();
    line.Append(TezString("."));
    line.Append(TezString(function));
    line.Append('(');
    line.Append(arguments);
    line.Append(TezString(")\n"));
    return line;
}

char const* Text(TezString const& s) { return s.c_str(); }

TezRef<TezDocument> ActiveDocument()
{
    TezApplication* app = TezApplication::Instance();
    return app ? app->GetActiveDocument() : nullptr;
}

} // namespace

// ---- new ----

TezRef<TezCmdDocumentNew> TezCmdDocumentNew::Create() { return TezRef<TezCmdDocumentNew>(new TezCmdDocumentNew()); }

bool TezCmdDocumentNew::Execute()
{
    TezApplication::Instance()->NewDocument();
    return true;
}

TezString TezCmdDocumentNew::BuildPython() const { return ScriptLine("new", TezString("")); }

bool TezCmdDocumentNew::Run()
{
    TezLogger::info("Creating new Morvane document.\n");
    if (!TezApplication::Instance() || !Create()->Execute())
        TezLogger::except("Unable to create new Morvane document");
    TezLogger::info("New Morvane document created.\n");
    return true;
}

// ---- open ----

TezRef<TezCmdDocumentOpen> TezCmdDocumentOpen::Create(TezString const& fileName)
{
    return TezRef<TezCmdDocumentOpen>(new TezCmdDocumentOpen(fileName));
}

bool TezCmdDocumentOpen::Execute()
{
    TezRef<TezDocument> document = TezApplication::Instance()->OpenDocument(m_fileName);
    return document && document->GetLastError() == TezDocument::DocNoError;
}

TezString TezCmdDocumentOpen::BuildPython() const { return ScriptLine("open", m_fileName.Pythonize()); }

bool TezCmdDocumentOpen::Run(TezString const& fileName)
{
    if (fileName.Length() == 0)
        TezLogger::except("Please specify a filename.");
    TezLogger::info("Opening Morvane document named %s.\n", Text(fileName));
    if (!TezApplication::Instance() || !Create(fileName)->Execute())
        TezLogger::except("Unable to open Morvane document %s successfully.", Text(fileName));
    TezLogger::info("Morvane document %s successfully opened.\n", Text(fileName));
    return true;
}

// ---- save ----

TezRef<TezCmdDocumentSave> TezCmdDocumentSave::Create() { return TezRef<TezCmdDocumentSave>(new TezCmdDocumentSave()); }

bool TezCmdDocumentSave::Execute()
{
    TezRef<TezDocument> document = ActiveDocument();
    if (document)
        document->Save();
    return true;
}

TezString TezCmdDocumentSave::BuildPython() const { return ScriptLine("save", TezString("")); }

bool TezCmdDocumentSave::Run()
{
    TezRef<TezDocument> document = ActiveDocument();
    if (!document)
        TezLogger::except("No active document to save.");
    TezString fileName = document->GetFileName();
    if (fileName.Length() == 0)
        TezLogger::except("The active document has never been saved. Try save_as.");
    TezLogger::info("Saving active document named %s.\n", Text(fileName));
    document->Save(fileName);
    TezLogger::info("Document %s successfully saved.\n", Text(fileName));
    return true;
}

// ---- save as ----

TezRef<TezCmdDocumentSaveAs> TezCmdDocumentSaveAs::Create(TezString const& fileName)
{
    return TezRef<TezCmdDocumentSaveAs>(new TezCmdDocumentSaveAs(fileName));
}

bool TezCmdDocumentSaveAs::Execute()
{
    TezRef<TezDocument> document = ActiveDocument();
    if (document)
        document->Save(m_fileName);
    return true;
}

TezString TezCmdDocumentSaveAs::BuildPython() const { return ScriptLine("save_as", m_fileName.Pythonize()); }

bool TezCmdDocumentSaveAs::Run(TezString const& fileName)
{
    TezRef<TezDocument> document = ActiveDocument();
    if (!document)
        TezLogger::except("No active document to save.");
    if (fileName.Length() == 0)
        TezLogger::except("Please specify a filename.");
    TezLogger::info("Saving active document named %s.\n", Text(fileName));
    document->Save(fileName);
    TezLogger::info("Morvane document %s successfully saved.\n", Text(fileName));
    return true;
}

// ---- free script text ----

TezRef<TezCmdInsertPython> TezCmdInsertPython::Create(TezString const& text)
{
    return TezRef<TezCmdInsertPython>(new TezCmdInsertPython(text));
}
