#pragma once
// TezDocumentObject: the common contract of every item of a document.
//
// Kinds override Save and Load and call these first: the base part is the
// section "Object Name" holding "name". Report() goes to the ACTIVE document,
// whichever document holds the object.

#include "core/Archive.h"
#include "document/Document.h"
#include "document/SelectableObject.h"

class TEZ_API TezDocumentObject : public TezSelectableObject
{
public:
    virtual TezString GetName() const { return m_name; }
    virtual void SetName(TezString const& name) { m_name = name; }
    // Called by the host when the object joins or leaves a document.
    virtual void OnAdd(TezRef<TezDocument> document) {}
    virtual void OnRemove(TezRef<TezDocument> document) {}
    virtual void Save(TezRef<TezArchive> archive);
    virtual void Load(TezRef<TezArchive> archive);

    // Sends a document event through the active document; needs one.
    void Report(TezDocument::DocEventType type);

protected:
    TezDocumentObject() = default;

private:
    TezString m_name;
};
