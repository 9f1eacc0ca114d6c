#pragma once
// The event bus: synchronous publish/subscribe between the kernel's parts.
//
// A subscriber registers a pattern event with a handler; Report delivers an
// event to every subscription of its type whose pattern it matches, in
// subscription order, on the reporter's thread. Handlers may report further
// events (delivered at once, nested) and may subscribe during delivery. While
// held, reported events queue up and are delivered in arrival order when the
// hold ends. Nothing here takes a lock: callers on several threads serialise.

#include "core/Typified.h"

#include <deque>
#include <map>

class TEZ_API TezEvent : public TezTypifiedObject
{
public:
    // True when the pattern is of this event's type.
    virtual bool IsMatching(TezRef<TezEvent> pattern);
};

class TEZ_API TezEventHandler : public TezRefCounter
{
public:
    virtual void Handle(TezRef<TezEvent> event) = 0;
};

struct TezEventKey
{
    uint32_t type = 0;
    uint32_t sequence = 0;
};

struct TezEventSubscription
{
    TezEventKey key;
    TezRef<TezEvent> pattern;
    TezRef<TezEventHandler> handler;
};

TEZ_DECLARE_REF_FUNCTIONS(TezEventManager)

class TEZ_API TezEventManager : public TezRefCounter
{
public:
    static TezRef<TezEventManager> Create();
    // The application's manager, or null when there is no application.
    static TezRef<TezEventManager> GetAppEventManager();

    ~TezEventManager() override;
    virtual TezEventKey Subscribe(TezRef<TezEvent> pattern, TezRef<TezEventHandler> handler);
    virtual bool Unsubscribe(TezEventKey key);
    // Drops every subscription; held events stay queued.
    virtual void UnsubscribeAll();
    virtual void Report(TezRef<TezEvent> event);
    virtual void Hold(bool on);
    virtual bool IsHolding() const { return m_holding; }

    size_t GetSubscriptionCount() const { return m_subscriptions.size(); }
    size_t GetHeldCount() const { return m_heldEvents.size(); }

private:
    TezEventManager() = default;

    std::multimap<uint32_t, TezEventSubscription> m_subscriptions;
    std::deque<TezRef<TezEvent>> m_heldEvents;
    bool m_holding = false;
};

// Events without data: they match a pattern of their own class.
#define TEZ_PLAIN_EVENT(Class)                                                                                         \
    class TEZ_API Class : public TezEvent                                                                              \
    {                                                                                                                  \
        TEZ_TYPIFIED_CLASS(Class)                                                                                      \
    public:                                                                                                            \
        static TezRef<Class> Create();                                                                                 \
        bool IsMatching(TezRef<TezEvent> pattern) override;                                                            \
                                                                                                                       \
    protected:                                                                                                         \
        Class() = default;                                                                                             \
    };

TEZ_PLAIN_EVENT(TezEventPreferencesChanging)
TEZ_PLAIN_EVENT(TezEventPreferencesChanged)
TEZ_PLAIN_EVENT(TezEventCommandManagerStatusChanged)
TEZ_PLAIN_EVENT(TezEventDocumentChanging)
TEZ_PLAIN_EVENT(TezEventDocumentChanged)
TEZ_PLAIN_EVENT(TezEventDocumentSelected)
#undef TEZ_PLAIN_EVENT

// Matches every redraw request pattern.
class TEZ_API TezEventRequestRedraw : public TezEvent
{
    TEZ_TYPIFIED_CLASS(TezEventRequestRedraw)
public:
    static TezRef<TezEventRequestRedraw> Create();

protected:
    TezEventRequestRedraw() = default;
};

// Redraw requests with a suspend counter: while suspended (counter at 1 or
// more) requests are dropped, not queued.
TEZ_API void TezRequestRedraw();
TEZ_API void TezSuspendRedraw();
TEZ_API void TezResumeRedraw();
