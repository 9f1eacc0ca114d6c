#include "core/Threads.h"

#include "core/AppService.h"

#include <chrono>
#include <exception>

TEZ_DEFINE_REF_FUNCTIONS(TezThreadManager)

// ---- TezThread ----

TezThread::TezThread(TezString const& name) : m_name(name) {}

TezThread::~TezThread()
{
    // A joinable handle ends the process here, as std::thread's own destructor does.
}

bool TezThread::Start()
{
    m_running = true;
    Run();
    m_running = false;
    return true;
}

TezExistingThread::TezExistingThread(TezString const& name) : TezThread(name) { TezThread::Start(); }

TezRef<TezExistingThread> TezExistingThread::Create(TezString const& name)
{
    return TezRef<TezExistingThread>(new TezExistingThread(name));
}

// ---- TezScheduledThread ----

TezScheduledThread::TezScheduledThread(TezString const& name) : TezThread(name) {}

TezRef<TezScheduledThread> TezScheduledThread::Create(TezString const& name)
{
    return TezRef<TezScheduledThread>(new TezScheduledThread(name));
}

void TezScheduledThread::Run()
{
    if (m_stopRequested) {
        m_stopRequested = false;
        return;
    }
    do {
        if (!IsPaused())
            ProcessOperations();
        std::this_thread::yield();
    } while (!m_stopRequested);
    m_stopRequested = false;
}

void TezScheduledThread::ProcessOperations()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::deque<TezRef<TezThreadOperation>> kept;
    while (!m_operations.empty()) {
        TezRef<TezThreadOperation> front = m_operations.front();
        if (front->Process())
            kept.push_back(front);
        m_operations.pop_front();
    }
    for (auto& operation : kept)
        m_operations.push_back(operation);
}

void TezScheduledThread::AddOperation(TezRef<TezThreadOperation> operation)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_operations.push_back(operation);
}

size_t TezScheduledThread::GetOperationCount()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_operations.size();
}

void TezScheduledThread::ChangePauseCount(bool on)
{
    if (on)
        ++m_pauseCount;
    else if (m_pauseCount > 0)
        --m_pauseCount;
}

void TezScheduledThread::Pause(bool on)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!IsThreadRunning() || IsPaused()) {
        ChangePauseCount(on);
        return;
    }
    auto operation = TezRef<TezPauseThreadOperation>(new TezPauseThreadOperation(this, on));
    m_operations.push_back(operation);
    m_condition.wait(lock, [&] { return operation->IsDone() || !IsThreadRunning(); });
}

void TezScheduledThread::Stop(bool wait)
{
    if (!IsThreadRunning())
        return;
    auto operation = TezRef<TezStopThreadOperation>(new TezStopThreadOperation(this));
    std::unique_lock<std::mutex> lock(m_mutex);
    m_operations.push_back(operation);
    // A paused worker would never take the request: do not wait for it then.
    if (wait)
        m_condition.wait(lock, [&] { return operation->IsDone() || IsPaused() || !IsThreadRunning(); });
}

TezScheduledThread::TezPauseThreadOperation::TezPauseThreadOperation(TezRef<TezScheduledThread> thread, bool pause)
    : m_thread(thread), m_pause(pause)
{
}

bool TezScheduledThread::TezPauseThreadOperation::Process()
{
    // Runs on the worker with the queue mutex held.
    m_thread->ChangePauseCount(m_pause);
    m_done = true;
    m_thread->m_condition.notify_all();
    return false;
}

TezStopThreadOperation::TezStopThreadOperation(TezRef<TezScheduledThread> thread) : m_thread(thread) {}

bool TezStopThreadOperation::Process()
{
    m_thread->m_stopRequested = true;
    m_done = true;
    m_thread->m_condition.notify_all();
    return false;
}

// ---- TezThreadManager ----

TezThreadManager::TezThreadManager()
{
    TezString name("Main Application");
    m_threads[name] = TezExistingThread::Create(name);
}

TezRef<TezThreadManager> TezThreadManager::Create() { return TezRef<TezThreadManager>(new TezThreadManager()); }

TezRef<TezThreadManager> TezThreadManager::GetAppThreadManager() { return TezAppService<TezThreadManager>::Get(); }

bool TezThreadManager::Start(TezRef<TezThread> thread)
{
    if (!thread || IsThreadRunning(thread->GetName()))
        return false;
    try {
        TezThread* raw = thread.Get();
        std::thread handle([raw] { raw->Start(); });
        if (raw->m_handle.joinable())
            std::terminate();
        raw->m_handle = std::move(handle);
        return true;
    } catch (std::exception const&) {
        return false;
    }
}

bool TezThreadManager::Stop(TezString const& name)
{
    TezRef<TezThread> thread = GetThread(name);
    if (!thread)
        return false;
    thread->Stop(true);
    m_threads.erase(name);
    return true;
}

TezRef<TezThread> TezThreadManager::GetThread(TezString const& name) const
{
    auto found = m_threads.find(name);
    return found == m_threads.end() ? nullptr : found->second;
}

bool TezThreadManager::IsThreadRunning(TezString const& name) const { return m_threads.count(name) > 0; }

void TezThreadManager::AllStart()
{
    for (auto& [name, thread] : m_threads)
        if (thread->IsThreadRunning())
            thread->Start();
}

void TezThreadManager::AllStop()
{
    for (auto& [name, thread] : m_threads)
        if (thread->IsThreadRunning())
            thread->Stop(true);
}

// ---- TezTimer ----

int64_t const TezTimer::TimerFrequency = TezTimer::GetTimerFrequency();
double const TezTimer::InvTimerFrequency = 1.0 / static_cast<double>(TezTimer::GetTimerFrequency());

int64_t TezTimer::TimeNow()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double TezTimer::TimeNowSecs() { return static_cast<double>(TimeNow()) * InvTimerFrequency; }

double TezTimer::TimeElapsed(int64_t start) { return static_cast<double>(TimeNow() - start) * InvTimerFrequency; }

int64_t TezTimer::GetTimerFrequency() { return 1000000000; }

void TezTimer::Delay(double seconds)
{
    int64_t start = TimeNow();
    while (TimeElapsed(start) < seconds) {
    }
}
