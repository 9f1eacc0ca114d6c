#pragma once
// A counted no-argument callback offered to hosts, and a do-nothing default.

#include "core/RefCounter.h"

class TEZ_API TezCallback : public TezRefCounter
{
public:
    virtual void Callback() = 0;
};

class TEZ_API TezCallbackFictive : public TezCallback
{
public:
    static TezRef<TezCallbackFictive> Create() { return TezRef<TezCallbackFictive>(new TezCallbackFictive()); }
    void Callback() override {}

protected:
    TezCallbackFictive() = default;
};
