#include "document/ScriptManager.h"

#include "core/Application.h"
#include "document/Document.h"

#include <algorithm>

TezScriptManager* TezScriptManager::m_instance = nullptr;

namespace {

bool Contains(TezString const& line, char const* text) { return line.FindNoCase(TezString(text)) >= 0; }

TezRef<TezCommandManager> ActiveCommandManager()
{
    TezRef<TezDocument> document = TezDocument::GetActiveDocument();
    return document ? document->GetCommandManager() : nullptr;
}

TezString Trimmed(TezString text)
{
    text.Trim();
    return text.Length() ? text : TezString("");
}

} // namespace

void* TezScriptManager::ParseMethod(TezScriptRunMethod run, char const* format, char const* rtnFormat, void*, void*,
                                    void* rtnArgPtr)
{
    if (m_instance) {
        m_instance->m_lastRunMethod = run;
        m_instance->m_lastFormat = format;
        m_instance->m_lastRtnArg = rtnFormat;
        m_instance->m_lastRtnArgPtr = rtnArgPtr;
    }
    return nullptr;
}

TezScriptRunMethod TezScriptManager::GetCommandRunMethod(TezCommand::CommandDef const& def)
{
    if (!def.pyRun)
        return nullptr;
    def.pyRun(nullptr, nullptr);
    return m_lastRunMethod;
}

char const* TezScriptManager::GetCommandFormat(TezCommand::CommandDef const& def)
{
    if (!def.pyRun)
        return nullptr;
    def.pyRun(nullptr, nullptr);
    return m_lastFormat;
}

char const* TezScriptManager::GetCommandRtnArg(TezCommand::CommandDef const& def)
{
    if (!def.pyRun)
        return nullptr;
    def.pyRun(nullptr, nullptr);
    return m_lastRtnArg;
}

void* TezScriptManager::GetCommandRtnArgPtr(TezCommand::CommandDef const& def)
{
    if (!def.pyRun)
        return nullptr;
    def.pyRun(nullptr, nullptr);
    return m_lastRtnArgPtr;
}

std::vector<TezScriptManager::CommandDef>& TezScriptManager::GetCommandList()
{
    Initialize();
    return m_commandList;
}

std::vector<TezString>& TezScriptManager::GetCommandListNames()
{
    Initialize();
    return m_commandNames;
}

void TezScriptManager::BuildCommandList(std::vector<TezCommand::CommandDef> const& definitions)
{
    m_commandList.clear();
    m_commandList.resize(definitions.size());
    for (size_t i = 0; i < definitions.size(); ++i) {
        CommandDef& entry = m_commandList[i];
        TezCommand::CommandDef const& def = definitions[i];
        entry.runMethod = GetCommandRunMethod(def);
        char const* format = GetCommandFormat(def);
        char const* rtnArg = GetCommandRtnArg(def);
        entry.rtnArg = rtnArg ? rtnArg[0] : 0;
        entry.rtnArgPtr = GetCommandRtnArgPtr(def);
        entry.def = def;

        TezString help(def.help ? def.help : "");
        int pos = help.Find(TezString("Parameters:\n"));
        TezString fmt(format);
        if (format && format[0] == ':') {
            std::vector<TezString> parts = fmt.Split(TezString(":"));
            if (parts.size() >= 2)
                fmt = parts[1];
        }
        entry.format = fmt;
        if (pos < 0 || !format || fmt.c_str()[0] == ':') {
            entry.description = help;
            continue;
        }
        entry.description = Trimmed(help.Left(pos));
        TezString rest = Trimmed(help.Mid(pos + 12, help.Length() - pos - 12));
        size_t nextType = 0;
        for (TezString const& line : rest.Split(TezString("\n"))) {
            std::vector<TezString> words = line.Split(TezString(" \t"));
            int dash = line.Find(TezString(" - "));
            if (words.size() >= 2 && words[1] == "-" && dash >= 0) {
                Parameter parameter;
                parameter.name = Trimmed(line.Left(dash));
                parameter.description = Trimmed(line.Mid(dash + 3, line.Length() - dash - 3));
                parameter.type = nextType < static_cast<size_t>(fmt.Length()) ? fmt.c_str()[nextType] : '?';
                ++nextType;
                entry.params.push_back(parameter);
            } else if (!entry.params.empty()) {
                entry.params.back().description.Append(TezString("\n"));
                entry.params.back().description.Append(line);
            }
        }
        entry.declared = entry.params.size();
    }
}

void TezScriptManager::SetDocScript(std::vector<TezString> const& lines)
{
    if (m_executing)
        return;
    m_docScript = lines;
    m_liveScript.clear();
    m_liveFlags.clear();
    m_mergedScript.clear();
    m_mergedFlags.clear();
    m_liveStart = -1;
}

std::vector<TezString> TezScriptManager::MergeDocScript(std::vector<TezString> const& lines)
{
    std::vector<TezString> live;
    if (m_executing) {
        live = m_executingSnapshot;
    } else {
        TezRef<TezCommandManager> manager = ActiveCommandManager();
        if (manager)
            live = manager->BuildPython();
    }
    if (lines.size() < 2)
        return live;

    std::vector<TezString> result;
    for (TezString const& line : lines)
        if (!Contains(line, "stop("))
            result.push_back(line);

    size_t position = live.size();
    for (size_t i = 0; i < live.size(); ++i) {
        if (Contains(live[i], "new(")) {
            position = i + 1;
            break;
        }
        if (Contains(live[i], "stop(")) {
            position = i;
            break;
        }
    }
    if (position < live.size() && Contains(live[position], "open("))
        ++position;
    m_liveStart = static_cast<int>(position);
    m_mergedStart = static_cast<int>(result.size());
    result.insert(result.end(), live.begin() + static_cast<long>(position), live.end());
    return result;
}

void TezScriptManager::RefreshScript(bool useMergedNew)
{
    if (useMergedNew != m_useMerged && m_liveStart >= 0 && m_mergedStart >= 0) {
        auto carry = [](std::vector<TezString>& toLines, std::vector<int>& toFlags, size_t cut,
                        std::vector<TezString> const& fromLines, std::vector<int> const& fromFlags, size_t from) {
            toLines.resize(std::min(cut, toLines.size()));
            toFlags.resize(toLines.size());
            for (size_t i = from; i < fromLines.size(); ++i) {
                toLines.push_back(fromLines[i]);
                toFlags.push_back(i < fromFlags.size() ? fromFlags[i] : 0);
            }
        };
        if (m_useMerged)
            carry(m_liveScript, m_liveFlags, static_cast<size_t>(m_liveStart), m_mergedScript, m_mergedFlags,
                  static_cast<size_t>(m_mergedStart));
        else
            carry(m_mergedScript, m_mergedFlags, static_cast<size_t>(m_mergedStart), m_liveScript, m_liveFlags,
                  static_cast<size_t>(m_liveStart));
    }
    m_useMerged = useMergedNew;

    if (!m_liveScript.empty() && !m_mergedScript.empty()) {
        std::vector<TezString> fresh = MergeDocScript(m_useMerged ? m_docScript : std::vector<TezString>());
        std::vector<TezString>& view = View();
        std::vector<int>& flags = Flags();
        flags.resize(view.size());
        if (fresh.size() > view.size()) {
            for (size_t i = 0; i < view.size(); ++i)
                if (!(flags[i] & 1))
                    view[i] = fresh[i];
            for (size_t i = view.size(); i < fresh.size(); ++i) {
                view.push_back(fresh[i]);
                flags.push_back(0);
            }
        } else if (fresh.size() < view.size()) {
            view.resize(fresh.size());
            flags.resize(fresh.size());
            for (size_t i = 0; i < view.size(); ++i)
                if (!(flags[i] & 1))
                    view[i] = fresh[i];
            if (!view.empty())
                view.back() = fresh.back();
        }
        return;
    }

    m_liveScript = MergeDocScript(std::vector<TezString>());
    m_liveFlags.assign(m_liveScript.size(), 0);
    m_mergedScript = MergeDocScript(m_docScript);
    m_mergedFlags.assign(m_mergedScript.size(), 0);
    for (size_t i = 0; i < m_mergedScript.size(); ++i) {
        TezString& line = m_mergedScript[i];
        if (line.Length() >= 2 && line.c_str()[0] == '#' && line.c_str()[1] == ' ') {
            line = line.Mid(2, line.Length() - 2);
            if (line.Length() == 0)
                line = TezString("");
            if (i < m_docScript.size())
                m_docScript[i] = line;
            m_mergedFlags[i] |= 2;
        }
    }
}

bool TezScriptManager::SetActiveScriptLine(int line)
{
    m_activeScriptLine = line;
    return ParseScriptLine(line);
}

namespace {

// The command a script line calls: "module.name(...)" or "x = module.name(...)"
// gives name when module is the script module; any other dotted call gives
// the call as written. Empty when the line calls nothing.
TezString CalledName(TezString const& line, TezString const& module)
{
    std::vector<TezString> tokens = line.Split(TezString("=("));
    if (tokens.empty())
        return TezString();
    TezString call = tokens[0];
    std::vector<TezString> words = call.Split(TezString(". \t"));
    if (words.size() < 2 && tokens.size() >= 2) {
        call = tokens[1];
        words = call.Split(TezString(". \t\n"));
    }
    if (words.size() < 2)
        return TezString();
    return words[0].CompareNoCase(module) == 0 ? words[1] : call;
}

// The argument text between the first "(" and the last ")", without the
// spaces and brackets at either end: characters start to end, inclusive.
void ArgumentRange(TezString const& line, int& start, int& end)
{
    int const length = line.Length();
    char const* text = line.c_str();
    int const open = line.Find('(');
    int const close = line.ReverseFind(')');
    start = open >= 0 ? open + 1 : length;
    end = close >= 0 ? close - 1 : length - 1;
    while (start < length && (text[start] == ' ' || text[start] == '['))
        ++start;
    while (end >= 0 && (text[end] == ' ' || text[end] == ']'))
        --end;
}

// The arguments of the range, split at every comma; empty ones kept.
std::vector<TezString> SplitArguments(TezString const& line, int start, int end)
{
    std::vector<TezString> arguments;
    if (start > end)
        return arguments;
    char const* text = line.c_str();
    int from = start;
    for (int i = start; i <= end + 1; ++i) {
        if (i == end + 1 || text[i] == ',') {
            arguments.push_back(line.Mid(from, i - from));
            if (i - from == 0)
                arguments.back() = TezString("");
            from = i + 1;
        }
    }
    return arguments;
}

} // namespace

int TezScriptManager::FindCommand(TezString const& name)
{
    std::vector<TezString> const& names = GetCommandListNames();
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i].CompareNoCase(name) == 0)
            return static_cast<int>(i);
    return -1;
}

bool TezScriptManager::ParseScriptLine(int lineIndex)
{
    m_activeScriptCommand = -1;
    std::vector<TezString> const& view = GetScript();
    if (lineIndex < 0 || static_cast<size_t>(lineIndex) >= view.size())
        return false;
    TezString const line = view[static_cast<size_t>(lineIndex)];

    TezApplication* app = TezApplication::Instance();
    TezString const name = CalledName(line, app ? app->GetScriptModuleName() : TezString(""));
    if (name.Length() == 0)
        return false;
    int start = 0, end = 0;
    ArgumentRange(line, start, end);
    std::vector<TezString> const arguments = SplitArguments(line, start, end);

    int const found = FindCommand(name);
    if (found < 0)
        return false;
    m_activeScriptCommand = found;

    CommandDef& entry = m_commandList[static_cast<size_t>(found)];
    int const length = line.Length();
    entry.prefix = line.Left(start);
    int const suffixStart = std::max(end + 1, start);
    entry.suffix = suffixStart < length ? line.Mid(suffixStart, length - suffixStart) : TezString("");
    if (entry.declared == 0)
        return false;
    SetParameters(entry, arguments);
    if (!FillDefaults(entry))
        return false;
    UpdateActiveScriptLine();
    return true;
}

void TezScriptManager::SetParameters(CommandDef& entry, std::vector<TezString> const& arguments)
{
    entry.params.resize(entry.declared);
    for (size_t i = 0; i < arguments.size(); ++i) {
        TezString value = Trimmed(arguments[i]);
        if (i < entry.params.size()) {
            entry.params[i].value = value;
        } else {
            Parameter extra;
            extra.value = value;
            entry.params.push_back(extra);
        }
    }
    for (size_t i = arguments.size(); i < entry.params.size(); ++i)
        entry.params[i].value.Erase();
}

bool TezScriptManager::FillDefaults(CommandDef& entry)
{
    if (!entry.def.defaultsMethod)
        return false;
    std::vector<TezString> defaults(entry.declared, TezString(""));
    entry.def.defaultsMethod(&defaults);
    bool filled = false;
    for (size_t i = 0; i < entry.declared && i < defaults.size(); ++i) {
        if (entry.params[i].value.Length() == 0) {
            entry.params[i].value = defaults[i];
            filled = true;
        }
    }
    return filled;
}

void TezScriptManager::UpdateActiveScriptLine()
{
    if (m_activeScriptCommand < 0 || static_cast<size_t>(m_activeScriptCommand) >= m_commandList.size())
        return;
    CommandDef const& entry = m_commandList[static_cast<size_t>(m_activeScriptCommand)];
    TezString line = entry.prefix;
    for (size_t i = 0; i < entry.params.size(); ++i) {
        if (i > 0)
            line.Append(TezString(", "));
        line.Append(entry.params[i].value);
    }
    line.Append(entry.suffix);
    std::vector<TezString>& view = View();
    std::vector<int>& flags = Flags();
    if (m_activeScriptLine < 0 || static_cast<size_t>(m_activeScriptLine) >= view.size())
        return;
    flags.resize(view.size());
    view[static_cast<size_t>(m_activeScriptLine)] = line;
    flags[static_cast<size_t>(m_activeScriptLine)] |= 1;
}

bool TezScriptManager::SetNewParamValue(int command, int param, TezString const& value)
{
    if (command != m_activeScriptCommand || command < 0)
        return false;
    CommandDef& entry = m_commandList[static_cast<size_t>(command)];
    if (param < 0 || static_cast<size_t>(param) >= entry.params.size())
        return false;
    entry.params[static_cast<size_t>(param)].value = value;
    bool result = false;
    if (entry.def.validateMethod && !entry.params.empty()) {
        std::vector<TezString> values;
        for (Parameter const& p : entry.params)
            values.push_back(p.value);
        result = entry.def.validateMethod(&values);
        for (size_t i = 0; i < values.size() && i < entry.params.size(); ++i)
            entry.params[i].value = values[i];
    }
    UpdateActiveScriptLine();
    return result;
}

void TezScriptManager::SetScriptCommentFlag(int line, bool on)
{
    std::vector<int>& flags = Flags();
    flags.resize(View().size());
    if (line < 0 || static_cast<size_t>(line) >= flags.size())
        return;
    if (on)
        flags[static_cast<size_t>(line)] |= 2;
    else
        flags[static_cast<size_t>(line)] &= ~2;
}

void TezScriptManager::SetExecutingMode(bool on)
{
    m_executing = on;
    if (!on)
        return;
    TezRef<TezCommandManager> manager = ActiveCommandManager();
    if (manager)
        m_executingSnapshot = manager->BuildPython();
}
