#pragma once
// TezSelectableObject: anything a user can select, as a whole and by
// sub-element indices: document objects and scene objects alike. Select()
// always goes through the ACTIVE document's selection: the document layer
// hands its handler over at load time (without one, Select does nothing);
// only TezSelection writes the selected flag.

#include "core/Identifiable.h"

#include <set>

class TEZ_API TezSelectableObject : public TezIdentifiableObject
{
public:
    // Adds to or removes from the active document's selection; needs one.
    virtual void Select(bool on);
    virtual bool IsSelected() const { return m_selected; }
    virtual void SelectIndex(unsigned int index) { m_selectedIndices.insert(index); }
    virtual void UnselectIndex(unsigned int index) { m_selectedIndices.erase(index); }
    virtual void ClearIndices() { m_selectedIndices.clear(); }

    std::set<uint32_t> const& GetSelectedIndices() const { return m_selectedIndices; }

    using SelectHandler = void (*)(TezSelectableObject* object, bool on);
    static void SetSelectHandler(SelectHandler handler);

protected:
    TezSelectableObject() : TezIdentifiableObject(0) {}

private:
    friend class TezSelection;
    std::set<uint32_t> m_selectedIndices;
    bool m_selected = false;
};
