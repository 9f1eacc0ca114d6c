#include "document/Selection.h"

#include "core/Events.h"
#include "document/Document.h"

#include <stdexcept>

TEZ_DEFINE_REF_FUNCTIONS(TezSelection)

TEZ_SUBJECT_EVENT_IMPL(TezEventSelectionChanged, "Selection Changed Event", TezSelection, m_selection)
TEZ_SUBJECT_EVENT_IMPL(TezEventSelectionChanging, "Selection Changing Event", TezSelection, m_selection)

namespace {

// Selecting an object goes through the active document's selection.
void SelectInActiveDocument(TezSelectableObject* object, bool on)
{
    TezRef<TezSelection> selection = TezSelection::GetActiveSelection();
    if (on)
        selection->AddObject(object);
    else
        selection->RemoveObject(object);
}

struct SelectHandlerAtLoad
{
    SelectHandlerAtLoad() { TezSelectableObject::SetSelectHandler(&SelectInActiveDocument); }
} g_selectHandlerAtLoad;

} // namespace

TezRef<TezSelection> TezSelection::Create() { return TezRef<TezSelection>(new TezSelection()); }

TezRef<TezSelection> TezSelection::GetActiveSelection()
{
    TezRef<TezDocument> document = TezDocument::GetActiveDocument();
    if (!document)
        throw std::runtime_error("TezSelection::GetActiveSelection: there is no active document");
    return document->GetSelection();
}

TezSelection::~TezSelection()
{
    for (auto const& object : m_objects)
        object->m_selected = false;
}

void TezSelection::ReportChanging()
{
    TezRef<TezEventManager> events = TezEventManager::GetAppEventManager();
    if (events)
        events->Report(TezEventSelectionChanging::Create(this));
}

void TezSelection::ReportChanged()
{
    TezRef<TezEventManager> events = TezEventManager::GetAppEventManager();
    if (events)
        events->Report(TezEventSelectionChanged::Create(this));
}

bool TezSelection::AddObject(TezRef<TezSelectableObject> object)
{
    if (!object)
        return true;
    ReportChanging();
    m_objects.insert(object);
    object->m_selected = true;
    ReportChanged();
    return true;
}

bool TezSelection::RemoveObject(TezRef<TezSelectableObject> object)
{
    if (!object)
        return true;
    auto found = m_objects.find(object);
    if (found == m_objects.end())
        return true;
    ReportChanging();
    if (m_cursor == found)
        m_cursor = m_objects.end();
    m_objects.erase(found);
    object->m_selected = false;
    ReportChanged();
    return true;
}

bool TezSelection::RemoveAll()
{
    ReportChanging();
    for (auto const& object : m_objects)
        object->m_selected = false;
    m_objects.clear();
    m_cursor = m_objects.end();
    ReportChanged();
    return true;
}

TezRef<TezSelectableObject> TezSelection::GetFirstObject()
{
    if (m_objects.empty())
        return nullptr;
    m_cursor = m_objects.begin();
    return *m_cursor;
}

TezRef<TezSelectableObject> TezSelection::GetNextObject()
{
    if (m_cursor == m_objects.end())
        return nullptr;
    ++m_cursor;
    return m_cursor == m_objects.end() ? nullptr : *m_cursor;
}

void TezSelection::RemoveAllIndices()
{
    for (auto const& object : m_objects)
        object->ClearIndices();
}
