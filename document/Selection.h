#pragma once
// TezSelection: the selected objects of one document, ordered by address.
//
// AddObject, RemoveObject and RemoveAll report TezEventSelectionChanging and
// TezEventSelectionChanged (carrying this selection) around the change:
// AddObject even when the object was already selected, RemoveAll even when
// empty; RemoveObject of an object that is not selected reports nothing.
// Null objects are ignored. All three answer true.

#include "core/RefCounter.h"
#include "core/SubjectEvent.h"
#include "document/SelectableObject.h"

#include <set>

TEZ_DECLARE_REF_FUNCTIONS(TezSelection)

TEZ_SUBJECT_EVENT(TezEventSelectionChanging, TezSelection, GetSelection, m_selection)
TEZ_SUBJECT_EVENT(TezEventSelectionChanged, TezSelection, GetSelection, m_selection)

class TEZ_API TezSelection : public TezRefCounter
{
public:
    static TezRef<TezSelection> Create();
    // The active document's selection; needs an active document.
    static TezRef<TezSelection> GetActiveSelection();
    // Clears the selected flags; reports nothing.
    ~TezSelection() override;

    virtual bool AddObject(TezRef<TezSelectableObject> object);
    virtual bool RemoveObject(TezRef<TezSelectableObject> object);
    virtual bool RemoveAll();
    virtual bool IsEmpty() const { return m_objects.empty(); }
    virtual size_t GetCount() const { return m_objects.size(); }
    // Iteration by address: GetFirstObject, then GetNextObject until null.
    virtual TezRef<TezSelectableObject> GetFirstObject();
    virtual TezRef<TezSelectableObject> GetNextObject();
    // Clears every object's sub-element indices; the objects stay selected.
    virtual void RemoveAllIndices();

private:
    TezSelection() = default;
    void ReportChanging();
    void ReportChanged();

    std::set<TezRef<TezSelectableObject>> m_objects;
    std::set<TezRef<TezSelectableObject>>::iterator m_cursor = m_objects.end();
};
