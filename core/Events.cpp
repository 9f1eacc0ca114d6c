#include "core/Events.h"

#include "core/AppService.h"

#include <stdexcept>

namespace {

// Shared by all managers and never reset, so a key is never reused.
uint32_t g_subscriptionSequence = 0;

int g_redrawSuspended = 0;

} // namespace

TEZ_DEFINE_REF_FUNCTIONS(TezEventManager)

bool TezEvent::IsMatching(TezRef<TezEvent> pattern) { return pattern->Type() == Type(); }

TezRef<TezEventManager> TezEventManager::Create() { return TezRef<TezEventManager>(new TezEventManager()); }

TezRef<TezEventManager> TezEventManager::GetAppEventManager() { return TezAppService<TezEventManager>::Get(); }

TezEventManager::~TezEventManager()
{
    m_subscriptions.clear();
    m_heldEvents.clear();
}

TezEventKey TezEventManager::Subscribe(TezRef<TezEvent> pattern, TezRef<TezEventHandler> handler)
{
    if (!pattern || !handler)
        throw std::runtime_error("TezEventManager::Subscribe: the pattern and the handler must not be null");
    TezEventKey key;
    key.type = pattern->Type();
    key.sequence = ++g_subscriptionSequence;
    // A multimap inserts behind the entries of an equal key.
    m_subscriptions.emplace(key.type, TezEventSubscription{key, pattern, handler});
    return key;
}

bool TezEventManager::Unsubscribe(TezEventKey key)
{
    auto range = m_subscriptions.equal_range(key.type);
    for (auto it = range.first; it != range.second; ++it) {
        if (it->second.key.sequence == key.sequence) {
            m_subscriptions.erase(it);
            return true;
        }
    }
    return false;
}

void TezEventManager::UnsubscribeAll() { m_subscriptions.clear(); }

void TezEventManager::Report(TezRef<TezEvent> event)
{
    if (!event)
        throw std::runtime_error("TezEventManager::Report: null event");
    if (m_holding) {
        m_heldEvents.push_back(event);
        return;
    }
    // The end is fixed before the walk; subscriptions a handler adds behind
    // the current one under this type are still reached.
    auto range = m_subscriptions.equal_range(event->Type());
    for (auto it = range.first; it != range.second; ++it) {
        TezEventSubscription& subscription = it->second;
        if (event->IsMatching(subscription.pattern)) {
            TezRef<TezEventHandler> handler = subscription.handler;
            handler->Handle(event);
        }
    }
}

void TezEventManager::Hold(bool on)
{
    if (m_holding == on)
        return;
    m_holding = on;
    if (on || m_heldEvents.empty())
        return;
    while (!m_heldEvents.empty()) {
        TezRef<TezEvent> front = m_heldEvents.front();
        Report(front);
        m_heldEvents.pop_front();
        // A handler that holds again keeps the rest queued.
        if (m_holding)
            return;
    }
}

#define TEZ_PLAIN_EVENT_IMPL(Class, Name)                                                                              \
    TEZ_TYPIFIED_IMPL(Class, Name)                                                                                     \
    TezRef<Class> Class::Create() { return TezRef<Class>(new Class()); }                                               \
    bool Class::IsMatching(TezRef<TezEvent> pattern) { return TezEvent::IsMatching(pattern) && TezRef<Class>(pattern); }

TEZ_PLAIN_EVENT_IMPL(TezEventPreferencesChanged, "Preferences Changed Event")
TEZ_PLAIN_EVENT_IMPL(TezEventPreferencesChanging, "Preferences Changing Event")
TEZ_PLAIN_EVENT_IMPL(TezEventCommandManagerStatusChanged, "Command Manager Status Changed Event")
TEZ_PLAIN_EVENT_IMPL(TezEventDocumentSelected, "Document Selected Event")
TEZ_PLAIN_EVENT_IMPL(TezEventDocumentChanged, "Document Changed Event")
TEZ_PLAIN_EVENT_IMPL(TezEventDocumentChanging, "Document Changing Event")

TEZ_TYPIFIED_IMPL(TezEventRequestRedraw, "Request Redraw Event")

TezRef<TezEventRequestRedraw> TezEventRequestRedraw::Create()
{
    return TezRef<TezEventRequestRedraw>(new TezEventRequestRedraw());
}

void TezRequestRedraw()
{
    if (g_redrawSuspended >= 1)
        return;
    TezRef<TezEventManager> events = TezEventManager::GetAppEventManager();
    if (events)
        events->Report(TezEventRequestRedraw::Create());
}

void TezSuspendRedraw() { ++g_redrawSuspended; }
void TezResumeRedraw() { --g_redrawSuspended; }
