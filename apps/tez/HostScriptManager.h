#pragma once
// TezHostScriptManager: the tez program's script manager. Constructing it
// makes it TezScriptManager::Instance() until it dies.
//
// Initialize describes the script functions once (the kernel's commands and
// queries, in registration order) and leaves the Python parse method
// (TezScriptCalls) installed for commands and queries alike, so that script
// calls run, in the embedded interpreter and the tezcore module alike.

#include "document/ScriptManager.h"

class TezHostScriptManager : public TezScriptManager
{
public:
    TezHostScriptManager();
    ~TezHostScriptManager() override;
    void Initialize() override;

private:
    bool m_described = false;
};
