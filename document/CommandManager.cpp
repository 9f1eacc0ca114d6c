#include "document/CommandManager.h"

#include "core/Application.h"
#include "core/Events.h"
#include "document/Document.h"

#include <cstdio>
#include <stdexcept>

TEZ_DEFINE_REF_FUNCTIONS(TezCommandManager)

// ---- TezCommand and TezQuery ----

TezScriptParseMethod TezCommand::parseMethod = nullptr;
TezScriptParseMethod TezQuery::parseMethod = nullptr;

TezString TezCommand::BuildPython() const
{
    return TezString("# The ability to build python for this command is not yet implemented.\n");
}

std::vector<TezCommand::CommandDef>& TezCommand::GetCommandList()
{
    static auto* commandList = new std::vector<CommandDef>();
    return *commandList;
}

void TezCommand::SetParseMethod(TezScriptParseMethod method) { parseMethod = method; }
TezScriptParseMethod TezCommand::GetParseMethod() { return parseMethod; }

void* TezCommand::CallParseMethod(TezScriptRunMethod run, char const* format, void* args, void* kwargs)
{
    TezScriptParseMethod method = GetParseMethod();
    return method ? method(run, format, "v", args, kwargs, nullptr) : nullptr;
}

std::vector<TezCommand::CommandDef>& TezQuery::GetCommandList()
{
    static auto* commandList = new std::vector<TezCommand::CommandDef>();
    return *commandList;
}

void TezQuery::SetParseMethod(TezScriptParseMethod method) { parseMethod = method; }
TezScriptParseMethod TezQuery::GetParseMethod() { return parseMethod; }

// ---- TezCommandBatch ----

TezRef<TezCommandBatch> TezCommandBatch::Create() { return TezRef<TezCommandBatch>(new TezCommandBatch()); }

void TezCommandBatch::Add(TezRef<TezCommand> command) { m_commands.push_back(command); }

bool TezCommandBatch::Execute()
{
    bool all = true;
    for (auto const& command : m_commands)
        all = command->Execute() && all;
    return all;
}

bool TezCommandBatch::IsUndoable()
{
    bool all = true;
    for (auto const& command : m_commands)
        all = command->IsUndoable() && all;
    return all;
}

bool TezCommandBatch::Undo()
{
    bool all = true;
    for (auto it = m_commands.rbegin(); it != m_commands.rend(); ++it)
        all = (*it)->Undo() && all;
    return all;
}

bool TezCommandBatch::Redo()
{
    bool all = true;
    for (auto const& command : m_commands)
        all = command->Redo() && all;
    return all;
}

void TezCommandBatch::ClearUndoMemory()
{
    for (auto const& command : m_commands)
        command->ClearUndoMemory();
}

TezString TezCommandBatch::BuildPython() const
{
    TezString text("");
    for (auto const& command : m_commands)
        text.Append(command->BuildPython());
    return text;
}

// ---- TezCommandManager ----

namespace {

TezRef<TezPrefOptionInt>& MaxUndoOption()
{
    static TezRef<TezPrefOptionInt> option;
    return option;
}

} // namespace

TezRef<TezPrefOptionInt> TezCommandManager::GetMaxUndoOption() { return MaxUndoOption(); }

TezCommandManager::TezCommandManager()
{
    if (!MaxUndoOption())
        MaxUndoOption() =
            TezPrefOptionInt::Create(5, -1, 64, TezString("Max undo commands (-1 - unlimited)"), TezString("Options"),
                                     TezString("General"), TezString("MaxUndoCommands"));
    m_maxUndoCommands = MaxUndoOption()->Get();
}

TezRef<TezCommandManager> TezCommandManager::Create() { return TezRef<TezCommandManager>(new TezCommandManager()); }

TezRef<TezCommandManager> TezCommandManager::GetActiveCommandMgr()
{
    TezRef<TezDocument> document = TezDocument::GetActiveDocument();
    if (!document)
        throw std::runtime_error("TezCommandManager::GetActiveCommandMgr: there is no active document");
    return document->GetCommandManager();
}

TezRef<TezCommandManager> TezCommandManager::GetActiveFocusCommandMgr()
{
    TezRef<TezDocument> document = TezDocument::GetActiveDocument();
    if (!document)
        throw std::runtime_error("TezCommandManager::GetActiveFocusCommandMgr: there is no active document");
    return document->GetFocusCommandManager();
}

TezCommandManager::~TezCommandManager() { TezCommandManager::ClearAll(); }

void TezCommandManager::ReportChange()
{
    TezRef<TezEventManager> events = TezEventManager::GetAppEventManager();
    if (events)
        events->Report(TezEventCommandManagerStatusChanged::Create());
}

bool TezCommandManager::Execute(TezRef<TezCommand> command)
{
    if (!command)
        throw std::runtime_error("TezCommandManager::Execute: null command");
    m_undoList.push_back(command);
    bool done = command->Execute();
    if (done) {
        ClearUndoMemoryIfNeeded();
        ClearRedo();
        ReportChange();
    } else if (!m_undoList.empty()) {
        m_undoList.pop_back(); // the tail, which need not be this command
    }
    return done;
}

void TezCommandManager::Push(TezRef<TezCommand> command)
{
    if (!command)
        throw std::runtime_error("TezCommandManager::Push: null command");
    m_undoList.push_back(command);
    ClearUndoMemoryIfNeeded();
    ClearRedo();
    ReportChange();
}

bool TezCommandManager::CanUndo()
{
    if (m_undoList.size() < 2)
        return false;
    return m_undoList.back()->IsUndoable();
}

bool TezCommandManager::CanRedo() { return !m_redoList.empty(); }

void TezCommandManager::Undo()
{
    if (!CanUndo())
        return;
    TezRef<TezCommand> command = PopUndoPushRedo();
    command->Undo();
}

void TezCommandManager::Redo()
{
    if (!CanRedo())
        return;
    TezRef<TezCommand> command = PopRedo();
    command->Redo();
}

TezRef<TezCommand> TezCommandManager::PopUndoPushRedo()
{
    if (m_undoList.empty())
        throw std::runtime_error("TezCommandManager::PopUndoPushRedo: the undo list is empty");
    TezRef<TezCommand> command = m_undoList.back();
    m_undoList.pop_back();
    m_redoList.push_front(command);
    ReportChange();
    return command;
}

TezRef<TezCommand> TezCommandManager::PopRedo()
{
    if (m_redoList.empty())
        throw std::runtime_error("TezCommandManager::PopRedo: the redo list is empty");
    TezRef<TezCommand> command = m_redoList.front();
    m_redoList.pop_front();
    m_undoList.push_back(command);
    ReportChange();
    return command;
}

void TezCommandManager::ClearUndo()
{
    m_undoList.clear();
    ReportChange();
}

void TezCommandManager::ClearRedo()
{
    m_redoList.clear();
    ReportChange();
}

void TezCommandManager::ClearAll()
{
    ClearUndo();
    ClearRedo();
}

void TezCommandManager::ClearUndoMemoryIfNeeded()
{
    int optionValue = MaxUndoOption()->Get();
    if (optionValue != m_maxUndoCommands) {
        SetMaxUndoCommands(optionValue);
        return;
    }
    int limit = m_maxUndoCommands;
    if (limit <= 0) {
        if (!m_undoList.empty())
            m_undoList.back()->ClearUndoMemory();
        return;
    }
    if (m_undoList.size() > static_cast<size_t>(limit)) {
        auto it = m_undoList.rbegin();
        std::advance(it, limit);
        (*it)->ClearUndoMemory();
    }
}

void TezCommandManager::SetMaxUndoCommands(int limit)
{
    MaxUndoOption()->Set(limit);
    m_maxUndoCommands = MaxUndoOption()->Get();
    if (m_maxUndoCommands < 0)
        return;
    int kept = 0;
    for (auto it = m_undoList.rbegin(); it != m_undoList.rend(); ++it)
        if (kept++ >= m_maxUndoCommands)
            (*it)->ClearUndoMemory();
}

std::vector<TezString> TezCommandManager::BuildPython() const
{
    TezApplication* app = TezApplication::Instance();
    if (!app)
        throw std::runtime_error("TezCommandManager::BuildPython: there is no application to name the script module");
    char const* module = app->GetScriptModuleName().c_str();
    std::vector<TezString> lines;
    TezString line;
    line.Format("import %s\n", module);
    lines.push_back(line);
    lines.emplace_back("\n");
    line.Format("%s.start()\n", module);
    lines.push_back(line);
    for (auto const& command : m_undoList) {
        for (TezString piece : command->BuildPython().Split(TezString("\n"))) {
            piece.Append('\n');
            lines.push_back(piece);
        }
    }
    line.Format("%s.stop()\n", module);
    lines.push_back(line);
    return lines;
}

bool TezCommandManager::ExportPython(TezString const& path) const
{
    std::vector<TezString> lines = BuildPython();
    FILE* file = std::fopen(path.c_str(), "wt");
    if (!file)
        return false;
    for (TezString const& line : lines)
        std::fprintf(file, "%s", line.c_str());
    std::fclose(file);
    return true;
}
