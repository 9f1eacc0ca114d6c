#pragma once
// The event bus under test: a handler that logs "tag:EventType" for each
// event it is handed (then runs its action, where it has one), and a fixture
// with a fresh bus and the log.

#include "core/Events.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

class EventRecorder : public TezEventHandler
{
public:
    static TezRef<EventRecorder> Create(std::vector<std::string>* log, std::string tag,
                                        std::function<void(TezRef<TezEvent>)> action = nullptr)
    {
        return TezRef<EventRecorder>(new EventRecorder(log, std::move(tag), std::move(action)));
    }
    void Handle(TezRef<TezEvent> event) override
    {
        m_log->push_back(m_tag + ":" + event->TypeName().c_str());
        if (m_action)
            m_action(event);
    }

private:
    EventRecorder(std::vector<std::string>* log, std::string tag, std::function<void(TezRef<TezEvent>)> action)
        : m_log(log), m_tag(std::move(tag)), m_action(std::move(action))
    {
    }
    std::vector<std::string>* m_log;
    std::string m_tag;
    std::function<void(TezRef<TezEvent>)> m_action;
};

class EventBus : public ::testing::Test
{
protected:
    TezRef<TezEventManager> bus = TezEventManager::Create();
    std::vector<std::string> log;
};
