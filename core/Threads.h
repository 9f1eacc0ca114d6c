#pragma once
// Worker threads and their manager.
//
// The application's thread manager stops every known thread at tear-down.
// The worker model grows here; until then the manager knows no threads.

#include "core/RefCounter.h"

TEZ_DECLARE_REF_FUNCTIONS(TezThreadManager)

class TEZ_API TezThreadManager : public TezRefCounter
{
public:
    // The application's manager; null without an application or before the
    // application builds one.
    static TezRef<TezThreadManager> GetAppThreadManager();
    ~TezThreadManager() override = default;

    virtual void AllStop() {}

protected:
    TezThreadManager() = default;
};
