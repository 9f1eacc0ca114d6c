#include "core/Events.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

class Recorder : public TezEventHandler
{
public:
    static TezRef<Recorder> Create(std::vector<std::string>* log, std::string tag,
                                   std::function<void(TezRef<TezEvent>)> action = nullptr)
    {
        return TezRef<Recorder>(new Recorder(log, std::move(tag), std::move(action)));
    }
    void Handle(TezRef<TezEvent> event) override
    {
        m_log->push_back(m_tag + ":" + event->TypeName().c_str());
        if (m_action)
            m_action(event);
    }

private:
    Recorder(std::vector<std::string>* log, std::string tag, std::function<void(TezRef<TezEvent>)> action)
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

} // namespace

TEST_F(EventBus, DeliversInSubscriptionOrderAndOnlyToItsType)
{
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "first"));
    bus->Subscribe(TezEventDocumentChanging::Create(), Recorder::Create(&log, "other"));
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "second"));
    bus->Report(TezEventDocumentChanged::Create());
    EXPECT_EQ((std::vector<std::string>{"first:Document Changed Event", "second:Document Changed Event"}), log);
}

TEST_F(EventBus, NestedReportsFinishBeforeTheOuterWalkGoesOn)
{
    TezEventManager* raw = bus.Get();
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "outer1", [raw](TezRef<TezEvent>) {
                       raw->Report(TezEventDocumentSelected::Create());
                   }));
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "outer2"));
    bus->Subscribe(TezEventDocumentSelected::Create(), Recorder::Create(&log, "inner"));
    bus->Report(TezEventDocumentChanged::Create());
    EXPECT_EQ((std::vector<std::string>{"outer1:Document Changed Event", "inner:Document Selected Event",
                                        "outer2:Document Changed Event"}),
              log);
}

TEST_F(EventBus, SubscriptionAddedDuringDeliveryIsReachedInTheSameWalk)
{
    TezEventManager* raw = bus.Get();
    std::vector<std::string>* record = &log;
    bool added = false;
    bus->Subscribe(TezEventDocumentChanged::Create(),
                   Recorder::Create(&log, "adder", [raw, record, &added](TezRef<TezEvent>) {
                       if (!added) {
                           added = true;
                           raw->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(record, "late"));
                       }
                   }));
    bus->Report(TezEventDocumentChanged::Create());
    EXPECT_EQ((std::vector<std::string>{"adder:Document Changed Event", "late:Document Changed Event"}), log);
}

TEST_F(EventBus, HoldQueuesAndReleaseDrainsInOrderWithoutNesting)
{
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "a"));
    bus->Subscribe(TezEventDocumentChanging::Create(), Recorder::Create(&log, "a"));
    bus->Hold(true);
    bus->Hold(true);
    EXPECT_TRUE(bus->IsHolding());
    bus->Report(TezEventDocumentChanging::Create());
    bus->Report(TezEventDocumentChanged::Create());
    bus->Report(TezEventDocumentChanging::Create());
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(3u, bus->GetHeldCount());
    bus->Hold(false); // one release ends any number of holds
    EXPECT_FALSE(bus->IsHolding());
    EXPECT_EQ((std::vector<std::string>{"a:Document Changing Event", "a:Document Changed Event",
                                        "a:Document Changing Event"}),
              log);
    EXPECT_EQ(0u, bus->GetHeldCount());
}

TEST_F(EventBus, ReleasingWhenNotHoldingDoesNothing)
{
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "a"));
    bus->Hold(false);
    EXPECT_TRUE(log.empty());
}

TEST_F(EventBus, HeldEventsSurviveUnsubscribeAllAndReachLaterSubscribers)
{
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "early"));
    bus->Hold(true);
    bus->Report(TezEventDocumentChanged::Create());
    bus->UnsubscribeAll();
    EXPECT_EQ(0u, bus->GetSubscriptionCount());
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "late"));
    bus->Hold(false);
    EXPECT_EQ((std::vector<std::string>{"late:Document Changed Event"}), log);
}

TEST_F(EventBus, EventsReportedWhileDrainingGoAheadOfTheQueue)
{
    TezEventManager* raw = bus.Get();
    bool once = false;
    bus->Subscribe(TezEventDocumentChanging::Create(), Recorder::Create(&log, "h", [raw, &once](TezRef<TezEvent>) {
                       if (!once) {
                           once = true;
                           raw->Report(TezEventDocumentSelected::Create());
                       }
                   }));
    bus->Subscribe(TezEventDocumentSelected::Create(), Recorder::Create(&log, "h"));
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "h"));
    bus->Hold(true);
    bus->Report(TezEventDocumentChanging::Create());
    bus->Report(TezEventDocumentChanged::Create());
    bus->Hold(false);
    EXPECT_EQ((std::vector<std::string>{"h:Document Changing Event", "h:Document Selected Event",
                                        "h:Document Changed Event"}),
              log);
}

TEST_F(EventBus, UnsubscribeRemovesExactlyOneSubscription)
{
    TezEventKey first = bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "1"));
    TezEventKey second = bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "2"));
    EXPECT_EQ(first.type, second.type);
    EXPECT_EQ(first.sequence + 1, second.sequence);
    EXPECT_TRUE(bus->Unsubscribe(first));
    EXPECT_FALSE(bus->Unsubscribe(first));
    bus->Report(TezEventDocumentChanged::Create());
    EXPECT_EQ((std::vector<std::string>{"2:Document Changed Event"}), log);

    // Sequence numbers are shared by all managers and never reused.
    auto another = TezEventManager::Create();
    TezEventKey third = another->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "3"));
    EXPECT_GT(third.sequence, second.sequence);
}

TEST_F(EventBus, HandlerExceptionAbandonsTheWalk)
{
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "thrower", [](TezRef<TezEvent>) {
                       throw std::runtime_error("handler failed");
                   }));
    bus->Subscribe(TezEventDocumentChanged::Create(), Recorder::Create(&log, "never"));
    EXPECT_THROW(bus->Report(TezEventDocumentChanged::Create()), std::runtime_error);
    EXPECT_EQ(1u, log.size());
}

TEST_F(EventBus, NullPatternOrEventIsRefused)
{
    EXPECT_THROW(bus->Subscribe(nullptr, Recorder::Create(&log, "x")), std::runtime_error);
    EXPECT_THROW(bus->Report(nullptr), std::runtime_error);
}
