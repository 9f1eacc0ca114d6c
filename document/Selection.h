#pragma once
// TezSelection: the set of selected objects of a document.
// Selection events carry the selection they belong to, so a subscriber can
// listen to one selection only.

#include "core/RefCounter.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSelection)

class TEZ_API TezSelection : public TezRefCounter
{
public:
    static TezRef<TezSelection> Create();
    ~TezSelection() override = default;

private:
    TezSelection() = default;
};
