#include "core/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace {

// Records its name each time it runs; stays queued for `passes` runs.
class Step : public TezThreadOperation
{
public:
    Step(std::vector<std::string>* log, std::mutex* logMutex, std::string name, int passes)
        : m_log(log), m_logMutex(logMutex), m_name(std::move(name)), m_passes(passes)
    {
    }
    bool Process() override
    {
        std::lock_guard<std::mutex> lock(*m_logMutex);
        m_log->push_back(m_name);
        return --m_passes > 0;
    }

private:
    std::vector<std::string>* m_log;
    std::mutex* m_logMutex;
    std::string m_name;
    int m_passes;
};

// Starts a scheduled worker and stops and joins it at the end.
class Worker : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(manager->Start(thread));
        while (!thread->IsThreadRunning())
            std::this_thread::yield();
    }
    void TearDown() override
    {
        while (thread->IsPaused())
            thread->Pause(false);
        thread->Stop(true);
        thread->GetHandle().join();
        EXPECT_FALSE(thread->IsThreadRunning());
    }
    // Waits until every queued operation has run (its own pause marker included).
    void Drain()
    {
        thread->Pause(true);
        thread->Pause(false);
    }
    TezRef<TezThreadManager> manager = TezThreadManager::Create();
    TezRef<TezScheduledThread> thread = TezScheduledThread::Create(TezString("Worker"));
    std::vector<std::string> log;
    std::mutex logMutex;
};

} // namespace

TEST(TezThreadManager, KnowsTheMainApplicationThreadByTableOnly)
{
    auto manager = TezThreadManager::Create();
    TezRef<TezThread> main = manager->GetThread(TezString("Main Application"));
    ASSERT_TRUE(main);
    EXPECT_TRUE(manager->IsThreadRunning(TezString("Main Application")));
    EXPECT_FALSE(main->IsThreadRunning()); // its body already ran in the constructor
    manager->AllStart();
    manager->AllStop();
    EXPECT_FALSE(manager->GetThread(TezString("Nobody")));
    EXPECT_FALSE(manager->Stop(TezString("Nobody")));

    // A thread of the table's name cannot be started.
    EXPECT_FALSE(manager->Start(TezScheduledThread::Create(TezString("Main Application"))));
    EXPECT_TRUE(manager->Stop(TezString("Main Application")));
    EXPECT_FALSE(manager->IsThreadRunning(TezString("Main Application")));
    EXPECT_FALSE(manager->Start(nullptr));
}

TEST_F(Worker, StartedThreadsStayOutOfTheTable)
{
    EXPECT_FALSE(manager->IsThreadRunning(TezString("Worker")));
    EXPECT_FALSE(manager->GetThread(TezString("Worker")));
}

TEST_F(Worker, KeptOperationsRunOncePerPassInTheirOrder)
{
    thread->Pause(true); // queue everything, then let one pass take it
    thread->AddOperation(TezRef<TezThreadOperation>(new Step(&log, &logMutex, "a", 3)));
    thread->AddOperation(TezRef<TezThreadOperation>(new Step(&log, &logMutex, "b", 1)));
    thread->AddOperation(TezRef<TezThreadOperation>(new Step(&log, &logMutex, "c", 2)));
    thread->Pause(false);
    while (thread->GetOperationCount() > 0)
        std::this_thread::yield();
    std::lock_guard<std::mutex> lock(logMutex);
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c", "a", "c", "a"}), log);
}

TEST_F(Worker, PauseCountsAndHoldsTheQueue)
{
    thread->Pause(true);
    EXPECT_TRUE(thread->IsPaused());
    thread->Pause(true); // already paused: counted directly
    EXPECT_EQ(2, thread->GetPauseCount());

    thread->AddOperation(TezRef<TezThreadOperation>(new Step(&log, &logMutex, "held", 1)));
    TezTimer::Delay(0.02);
    EXPECT_EQ(1u, thread->GetOperationCount()); // a paused worker takes nothing

    thread->Pause(false);
    EXPECT_TRUE(thread->IsPaused());
    thread->Pause(false);
    thread->Pause(false); // floor at zero
    EXPECT_EQ(0, thread->GetPauseCount());
    Drain();
    std::lock_guard<std::mutex> lock(logMutex);
    EXPECT_EQ((std::vector<std::string>{"held"}), log);
}

TEST(TezScheduledThread, PausedBeforeStartStartsPaused)
{
    auto manager = TezThreadManager::Create();
    auto thread = TezScheduledThread::Create(TezString("Late"));
    thread->Pause(true); // not running: only the count moves
    EXPECT_EQ(1, thread->GetPauseCount());
    ASSERT_TRUE(manager->Start(thread));
    while (!thread->IsThreadRunning())
        std::this_thread::yield();
    std::atomic<int> runs{0};
    struct Count : TezThreadOperation
    {
        explicit Count(std::atomic<int>* n) : n(n) {}
        bool Process() override { return ++*n, false; }
        std::atomic<int>* n;
    };
    thread->AddOperation(TezRef<TezThreadOperation>(new Count(&runs)));
    TezTimer::Delay(0.02);
    EXPECT_EQ(0, runs.load());
    thread->Pause(false);
    while (runs.load() == 0)
        std::this_thread::yield();
    thread->Stop(true);
    thread->GetHandle().join();
}

TEST(TezScheduledThread, StopOfAThreadThatIsNotRunningDoesNothing)
{
    auto thread = TezScheduledThread::Create(TezString("Idle"));
    thread->Stop(true);
    EXPECT_EQ(0u, thread->GetOperationCount());
}

TEST(TezTimer, MeasuresSmallNonNegativeIntervals)
{
    double elapsed = TezTimer::TimeElapsed(TezTimer::TimeNow());
    EXPECT_GE(elapsed, 0.0);
    EXPECT_LT(elapsed, 0.5);
    int64_t start = TezTimer::TimeNow();
    TezTimer::Delay(0.01);
    EXPECT_GE(TezTimer::TimeElapsed(start), 0.01);
    EXPECT_EQ(TezTimer::TimerFrequency, TezTimer::GetTimerFrequency());
    EXPECT_DOUBLE_EQ(1.0 / static_cast<double>(TezTimer::TimerFrequency), TezTimer::InvTimerFrequency);
}

TEST(TezCriticalSection, IsRecursiveForItsOwner)
{
    TezCriticalSection section;
    {
        TezThreadLock outer(section);
        TezThreadLock inner(section);
    }
    std::thread other([&] { TezThreadLock lock(section); });
    other.join();
}
