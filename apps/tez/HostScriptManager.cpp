#include "tez/HostScriptManager.h"

#include "tez/ScriptCalls.h"

TezHostScriptManager::TezHostScriptManager() { m_instance = this; }

TezHostScriptManager::~TezHostScriptManager()
{
    if (m_instance == this)
        m_instance = nullptr;
    TezCommand::SetParseMethod(nullptr);
    TezQuery::SetParseMethod(nullptr);
}

void TezHostScriptManager::Initialize()
{
    if (!m_described) {
        m_described = true;
        // Describing asks each pyRun for its run function and format, which
        // the reporting parse method answers without running anything.
        TezCommand::SetParseMethod(&TezScriptManager::ParseMethod);
        TezQuery::SetParseMethod(&TezScriptManager::ParseMethod);
        std::vector<TezCommand::CommandDef> definitions = TezCommand::GetCommandList();
        std::vector<TezCommand::CommandDef> const& queries = TezQuery::GetCommandList();
        definitions.insert(definitions.end(), queries.begin(), queries.end());
        BuildCommandList(definitions);
        m_commandNames.clear();
        for (CommandDef const& command : m_commandList)
            m_commandNames.emplace_back(command.def.name);
    }
    TezCommand::SetParseMethod(&TezScriptCalls::ParseMethod);
    TezQuery::SetParseMethod(&TezScriptCalls::ParseMethod);
}
