#pragma once
// TezDocument: a document of the host, holding its objects, selection and
// command history. Hosts derive it; the application answers the active one.

#include "core/RefCounter.h"

TEZ_DECLARE_REF_FUNCTIONS(TezDocument)

class TEZ_API TezDocument : public TezRefCounter
{
public:
    // The host application's active document; null without an application.
    static TezRef<TezDocument> GetActiveDocument();
    ~TezDocument() override = default;

protected:
    TezDocument() = default;
};
