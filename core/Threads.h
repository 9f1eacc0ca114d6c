#pragma once
// Worker threads: named threads, a scheduled worker that loops over a queue
// of small operations, and the manager that starts them.
//
// TezThread::Start() is the thread's BODY: it runs Run() on the calling
// thread. A new system thread comes only from TezThreadManager::Start, which
// launches one that calls Start(); the caller keeps the thread object alive,
// and joins or detaches its handle before starting it again or destroying it
// (a joinable handle then ends the process, as for any std::thread).
//
// The manager's table holds what its constructor put there, the existing
// "Main Application" thread; Start does not add to it, so a started thread is
// not found by name and AllStop does not reach it.
//
// A scheduled worker spins over its queue (yielding, never sleeping), runs
// each queued operation once per pass in queue order under the queue mutex,
// and keeps the operations that answer true for the next pass. Operations
// must be short and must not call AddOperation (the mutex is not recursive).

#include "core/RefCounter.h"
#include "core/String.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

class TezScheduledThread;

class TEZ_API TezThreadOperation : public TezRefCounter
{
public:
    TezThreadOperation() = default;
    // True keeps the operation queued for the next pass.
    virtual bool Process() = 0;
};

class TEZ_API TezThread : public TezRefCounter
{
public:
    ~TezThread() override;
    // Runs the body on the calling thread; always true.
    virtual bool Start();
    virtual bool IsThreadRunning() const { return m_running; }
    virtual TezString const& GetName() const { return m_name; }
    virtual std::thread& GetHandle() { return m_handle; }

protected:
    explicit TezThread(TezString const& name);
    virtual void Stop(bool wait) = 0;
    virtual void Run() = 0;

private:
    friend class TezThreadManager;
    TezString m_name;
    std::thread m_handle;
    std::atomic<bool> m_running{false};
};

// A thread that exists without the manager having started it.
class TEZ_API TezExistingThread : public TezThread
{
public:
    static TezRef<TezExistingThread> Create(TezString const& name);

protected:
    void Stop(bool) override {}
    void Run() override {}

private:
    explicit TezExistingThread(TezString const& name);
};

class TEZ_API TezScheduledThread : public TezThread
{
public:
    static TezRef<TezScheduledThread> Create(TezString const& name);
    virtual void AddOperation(TezRef<TezThreadOperation> operation);

    // Pausing a running thread waits until the worker has taken the request,
    // so the operations queued before it have run. Pauses count: each true
    // needs a false. On a thread that is not running only the count moves.
    void Pause(bool on);
    bool IsPaused() const { return m_pauseCount > 0; }
    int GetPauseCount() const { return m_pauseCount; }
    size_t GetOperationCount();

    // Asks the worker to leave its loop. With wait, returns once the worker
    // has taken the request (at once if the thread is paused, since a paused
    // worker takes no operations).
    void Stop(bool wait) override;

    class TezPauseThreadOperation;

protected:
    explicit TezScheduledThread(TezString const& name);
    void Run() override;
    virtual void ProcessOperations();

private:
    friend class TezStopThreadOperation;
    void ChangePauseCount(bool on);

    std::atomic<bool> m_stopRequested{false};
    std::mutex m_mutex;
    std::deque<TezRef<TezThreadOperation>> m_operations;
    std::atomic<int> m_pauseCount{0};
    std::condition_variable m_condition;
};

class TEZ_API TezScheduledThread::TezPauseThreadOperation : public TezThreadOperation
{
public:
    TezPauseThreadOperation(TezRef<TezScheduledThread> thread, bool pause);
    bool Process() override;
    bool IsDone() const { return m_done; }

private:
    TezRef<TezScheduledThread> m_thread;
    bool m_pause;
    bool m_done = false;
};

class TEZ_API TezStopThreadOperation : public TezThreadOperation
{
public:
    explicit TezStopThreadOperation(TezRef<TezScheduledThread> thread);
    bool Process() override;
    bool IsDone() const { return m_done; }

private:
    TezRef<TezScheduledThread> m_thread;
    bool m_done = false;
};

TEZ_DECLARE_REF_FUNCTIONS(TezThreadManager)

class TEZ_API TezThreadManager : public TezRefCounter
{
public:
    static TezRef<TezThreadManager> Create();
    // The application's manager; null without an application.
    static TezRef<TezThreadManager> GetAppThreadManager();
    ~TezThreadManager() override = default;

    // Launches a system thread running thread->Start(). False when the name
    // is in the table or the launch fails.
    virtual bool Start(TezRef<TezThread> thread);
    // Stops and forgets a thread of the table.
    virtual bool Stop(TezString const& name);
    virtual TezRef<TezThread> GetThread(TezString const& name) const;
    // Whether the name is in the table, whatever the thread's own state.
    virtual bool IsThreadRunning(TezString const& name) const;
    virtual void AllStart();
    virtual void AllStop();

private:
    TezThreadManager();
    std::map<TezString, TezRef<TezThread>> m_threads;
};

// Recursive lock for the owning thread.
class TEZ_API TezCriticalSection
{
public:
    void Lock() { m_mutex.lock(); }
    void Unlock() { m_mutex.unlock(); }

private:
    std::recursive_mutex m_mutex;
};

class TezThreadLock
{
public:
    explicit TezThreadLock(TezCriticalSection& section) : m_section(section) { m_section.Lock(); }
    ~TezThreadLock() { m_section.Unlock(); }
    TezThreadLock(TezThreadLock const&) = delete;
    TezThreadLock& operator=(TezThreadLock const&) = delete;

private:
    TezCriticalSection& m_section;
};

// Monotonic high-resolution time in counter ticks.
class TEZ_API TezTimer
{
public:
    static int64_t TimeNow();
    static double TimeNowSecs();
    static double TimeElapsed(int64_t start);
    static int64_t GetTimerFrequency();
    // Busy-waits; does not sleep.
    static void Delay(double seconds);

    static int64_t const TimerFrequency;
    static double const InvTimerFrequency;
};
