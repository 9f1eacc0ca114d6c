#include "python/LongWork.h"

#include "core/UIManager.h"
#include "tez/TerminalUI.h"

#include <pybind11/pybind11.h>

#include <chrono>
#include <exception>
#include <future>
#include <memory>
#include <thread>

namespace py = pybind11;

namespace {

[[noreturn]] void RaiseInterrupt()
{
    PyErr_SetNone(PyExc_KeyboardInterrupt);
    throw py::error_already_set();
}

} // namespace

void TezRunLongWork(std::function<void()> const& job)
{
    TezRef<TezUIManager> ui = TezUIManager::GetAppUIManager();
    // A Ctrl-C that the host caught between two calls stops the next one.
    if (ui && ui->GetStopFlag()) {
        TezTerminalUI::SetStopFlag(false);
        RaiseInterrupt();
    }
    std::packaged_task<void()> task(job);
    std::future<void> done = task.get_future();
    bool interrupted = false;
    std::unique_ptr<py::error_already_set> pending;
    {
        py::gil_scoped_release release;
        std::thread worker(std::move(task));
        while (done.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
            if (interrupted)
                continue;
            py::gil_scoped_acquire acquire;
            if (PyErr_CheckSignals() != 0) {
                // Held until the job has let go of what it took.
                pending = std::make_unique<py::error_already_set>();
                interrupted = true;
                TezTerminalUI::SetStopFlag(true);
            }
        }
        worker.join();
    }
    bool const stoppedByHost = !interrupted && ui && ui->GetStopFlag();
    TezTerminalUI::SetStopFlag(false);
    if (pending)
        throw std::move(*pending);
    if (stoppedByHost)
        RaiseInterrupt();
    done.get(); // the job's own exception, if any
}
