#include "core/CudaCheck.h"

#include "core/Logger.h"
#include "platform/DeviceMemory.h"

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<bool> g_failed{false};

[[noreturn]] void ForceCrash()
{
    // A write through a pointer the optimiser cannot see through, so that the
    // fault happens here and the stack shows who failed.
    volatile int* volatile address = nullptr;
    *address = 0;
    std::abort();
}

} // namespace

bool checkCudaError(int error, char const* tag)
{
    if (error == TezDeviceSuccess || g_failed.exchange(true))
        return true;
    size_t freeBytes = 0;
    size_t totalBytes = 0;
    TezDeviceMemGetInfo(&freeBytes, &totalBytes);
    double const megabyte = 1024.0 * 1024.0;
    TezLogger::error("\n------------------------------------------------------\n");
    TezLogger::error("ERROR: CUDA error at \"%s\": %s\n", tag ? tag : "", TezDeviceErrorString(error));
    TezLogger::error("  CUDA Available Memory: %.1f MB\n", static_cast<double>(freeBytes) / megabyte);
    TezLogger::error("  CUDA Total Memory: %.1f MB\n", static_cast<double>(totalBytes) / megabyte);
    TezLogger::error("  NOTE: Forcing abort and stack dump...\n\n");
    TezLogger::FlushLog();
    TezDeviceReset();
    ForceCrash();
}

bool checkCudaError(int error, TezString const& tag) { return checkCudaError(error, static_cast<char const*>(tag)); }

bool checkLastCudaError(char const* tag) { return checkCudaError(TezDeviceGetLastError(), tag); }

bool checkLastCudaError(TezString const& tag) { return checkCudaError(TezDeviceGetLastError(), tag); }
