#include "document/Document.h"

#include "core/Application.h"

TEZ_DEFINE_REF_FUNCTIONS(TezDocument)

TezRef<TezDocument> TezDocument::GetActiveDocument()
{
    TezApplication* app = TezApplication::Instance();
    return app ? app->GetActiveDocument() : nullptr;
}
