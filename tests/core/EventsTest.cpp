#include "tests/core/EventRecorder.h"

#include <string>
#include <vector>

TEST_F(EventBus, DeliversInSubscriptionOrderAndOnlyToItsType)
{
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "first"));
    bus->Subscribe(TezEventDocumentChanging::Create(), EventRecorder::Create(&log, "other"));
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "second"));
    bus->Report(TezEventDocumentChanged::Create());
    EXPECT_EQ((std::vector<std::string>{"first:Document Changed Event", "second:Document Changed Event"}), log);
}

TEST_F(EventBus, NestedReportsFinishBeforeTheOuterWalkGoesOn)
{
    TezEventManager* raw = bus.Get();
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "outer1", [raw](TezRef<TezEvent>) {
                       raw->Report(TezEventDocumentSelected::Create());
                   }));
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "outer2"));
    bus->Subscribe(TezEventDocumentSelected::Create(), EventRecorder::Create(&log, "inner"));
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
                   EventRecorder::Create(&log, "adder", [raw, record, &added](TezRef<TezEvent>) {
                       if (!added) {
                           added = true;
                           raw->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(record, "late"));
                       }
                   }));
    bus->Report(TezEventDocumentChanged::Create());
    EXPECT_EQ((std::vector<std::string>{"adder:Document Changed Event", "late:Document Changed Event"}), log);
}

TEST_F(EventBus, HoldQueuesAndReleaseDrainsInOrderWithoutNesting)
{
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "a"));
    bus->Subscribe(TezEventDocumentChanging::Create(), EventRecorder::Create(&log, "a"));
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
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "a"));
    bus->Hold(false);
    EXPECT_TRUE(log.empty());
}

TEST_F(EventBus, HeldEventsSurviveUnsubscribeAllAndReachLaterSubscribers)
{
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "early"));
    bus->Hold(true);
    bus->Report(TezEventDocumentChanged::Create());
    bus->UnsubscribeAll();
    EXPECT_EQ(0u, bus->GetSubscriptionCount());
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "late"));
    bus->Hold(false);
    EXPECT_EQ((std::vector<std::string>{"late:Document Changed Event"}), log);
}

TEST_F(EventBus, EventsReportedWhileDrainingGoAheadOfTheQueue)
{
    TezEventManager* raw = bus.Get();
    bool once = false;
    bus->Subscribe(TezEventDocumentChanging::Create(), EventRecorder::Create(&log, "h", [raw, &once](TezRef<TezEvent>) {
                       if (!once) {
                           once = true;
                           raw->Report(TezEventDocumentSelected::Create());
                       }
                   }));
    bus->Subscribe(TezEventDocumentSelected::Create(), EventRecorder::Create(&log, "h"));
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "h"));
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
    TezEventKey first = bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "1"));
    TezEventKey second = bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "2"));
    EXPECT_EQ(first.type, second.type);
    EXPECT_EQ(first.sequence + 1, second.sequence);
    EXPECT_TRUE(bus->Unsubscribe(first));
    EXPECT_FALSE(bus->Unsubscribe(first));
    bus->Report(TezEventDocumentChanged::Create());
    EXPECT_EQ((std::vector<std::string>{"2:Document Changed Event"}), log);

    // Sequence numbers are shared by all managers and never reused.
    auto another = TezEventManager::Create();
    TezEventKey third = another->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "3"));
    EXPECT_GT(third.sequence, second.sequence);
}

TEST_F(EventBus, HandlerExceptionAbandonsTheWalk)
{
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "thrower", [](TezRef<TezEvent>) {
                       throw std::runtime_error("handler failed");
                   }));
    bus->Subscribe(TezEventDocumentChanged::Create(), EventRecorder::Create(&log, "never"));
    EXPECT_THROW(bus->Report(TezEventDocumentChanged::Create()), std::runtime_error);
    EXPECT_EQ(1u, log.size());
}

TEST_F(EventBus, NullPatternOrEventIsRefused)
{
    EXPECT_THROW(bus->Subscribe(nullptr, EventRecorder::Create(&log, "x")), std::runtime_error);
    EXPECT_THROW(bus->Report(nullptr), std::runtime_error);
}
