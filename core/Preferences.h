#pragma once
// Typed preference options, kept by the application's option manager.

#include "core/RefCounter.h"

TEZ_DECLARE_REF_FUNCTIONS(TezPrefOptionManager)

class TEZ_API TezPrefOptionManager : public TezRefCounter
{
public:
    ~TezPrefOptionManager() override = default;

protected:
    TezPrefOptionManager() = default;
};
