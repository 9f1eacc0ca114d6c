#pragma once
// The application's registry of render views.

#include "core/RefCounter.h"

TEZ_DECLARE_REF_FUNCTIONS(TezRenderViewManager)

class TEZ_API TezRenderViewManager : public TezRefCounter
{
public:
    // The application's manager; null without an application or before the
    // application builds one.
    static TezRef<TezRenderViewManager> GetAppRenderViewManager();
    ~TezRenderViewManager() override = default;

protected:
    TezRenderViewManager() = default;
};
