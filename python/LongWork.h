#pragma once
// TezRunLongWork: runs a kernel job for Python with the GIL released, so that
// other Python threads go on, and with Ctrl-C honoured.
//
// The job runs on a worker thread while the calling thread waits. Every 50 ms
// the caller takes the GIL and lets Python run its signal handlers
// (PyErr_CheckSignals); when one raises (KeyboardInterrupt on Ctrl-C) the
// kernel's stop flag goes up, the job is waited for, and the Python error is
// raised once the job has ended cleanly. A stop flag raised by the host (the
// tez program's own Ctrl-C handler), during the job or before it, is
// reported as KeyboardInterrupt too; the flag is lowered again either way.
// The job's C++ exceptions pass through unchanged. The job must not touch
// Python objects. Call with the GIL held.

#include <functional>

void TezRunLongWork(std::function<void()> const& job);

// The same for a job that answers a value.
template <class Result, class Job>
Result TezRunLongWork(Job&& job)
{
    Result result{};
    TezRunLongWork(std::function<void()>([&] { result = job(); }));
    return result;
}
