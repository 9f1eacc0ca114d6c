#include "core/Threads.h"

#include "core/Application.h"

TEZ_DEFINE_REF_FUNCTIONS(TezThreadManager)

TezRef<TezThreadManager> TezThreadManager::GetAppThreadManager()
{
    TezApplication* app = TezApplication::Instance();
    return app ? app->GetThreadManager() : nullptr;
}
