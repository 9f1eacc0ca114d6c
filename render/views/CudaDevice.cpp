#include "render/views/CudaDevice.h"

#include "core/Logger.h"

#include <vector>

namespace {

// Free bytes per usable device at start-up, by device number.
struct InitMemory
{
    int device;
    size_t freeBytes;
};
std::vector<InitMemory> g_memoryAtInit;

double Megabytes(size_t bytes) { return double(bytes) / (1024.0 * 1024.0); }

void LogDevice(TezDeviceProperties const& p)
{
    TezLogger::info("  CUDA Device name: %s\n", p.name);
    TezLogger::info("  CUDA Compute capability: %d.%d\n", p.major, p.minor);
    TezLogger::debug("  CUDA Multi Processor Count: %d\n", p.multiProcessorCount);
    TezLogger::debug("  CUDA Memory Clock Rate: %.1f MHz\n", p.memoryClockRate / 1000.0);
    TezLogger::debug("  CUDA Memory Bus Width: %d bits\n", p.memoryBusWidth);
    TezLogger::debug("  CUDA Peak Memory Bandwidth: %.2f GB/s\n",
                     2.0 * p.memoryClockRate * (p.memoryBusWidth / 8) / 1.0e6);
    TezLogger::debug("  CUDA Async Engine Count: %d\n", p.asyncEngineCount);
    TezLogger::debug("  CUDA Can Map Host Memory: %d\n", p.canMapHostMemory);
    TezLogger::debug("  CUDA Concurrent Kernels: %d\n", p.concurrentKernels);
    TezLogger::debug("  CUDA Kernel Exec Timeout Enabled: %d\n", p.kernelExecTimeoutEnabled);
    TezLogger::debug("  CUDA Max Grid Size: %d\n", p.maxGridSize[0]);
    TezLogger::debug("  CUDA Max Threads Dim: %d\n", p.maxThreadsDim[0]);
    TezLogger::debug("  CUDA Max Threads Per Block: %d\n", p.maxThreadsPerBlock);
    TezLogger::debug("  CUDA Max Threads Per Multi Processor: %d\n", p.maxThreadsPerMultiProcessor);
    TezLogger::debug("  CUDA Mem Pitch: %.2f MB\n", Megabytes(p.memPitch));
    TezLogger::debug("  CUDA Registers Per Block: %d\n", p.regsPerBlock);
    TezLogger::debug("  CUDA Registers Per Multi Processor: %d\n", p.regsPerMultiprocessor);
    TezLogger::debug("  CUDA Shared Memory Per Block: %.1f KB\n", p.sharedMemPerBlock / 1024.0);
    TezLogger::debug("  CUDA Shared Memory Per Multi Processor: %.1f KB\n", p.sharedMemPerMultiprocessor / 1024.0);
    TezLogger::debug("  CUDA Total Constant Memory: %.1f KB\n", p.totalConstMem / 1024.0);
    TezLogger::debug("  CUDA Total Global Memory: %.1f MB\n", Megabytes(p.totalGlobalMem));
    TezLogger::debug("  CUDA Unified Addressing: %d\n", p.unifiedAddressing);
    TezLogger::debug("  CUDA Warp Size: %d threads\n", p.warpSize);
}

constexpr int kComputeModeProhibited = 2;

} // namespace

int TezInitializeCUDAWith(TezCudaDeviceQueries const& q)
{
    g_memoryAtInit.clear();
    int count = 0;
    if (q.getCount(&count) != TezDeviceSuccess)
        return 4097;
    if (count < 1)
        return 4098;
    TezLogger::info("  CUDA Number of Devices: %d\n", count);
    for (int device = 0; device < count; ++device) {
        TezDeviceProperties properties;
        if (q.getProperties(&properties, device) != TezDeviceSuccess)
            return 4099;
        if (properties.computeMode == kComputeModeProhibited || properties.major < 1)
            continue;
        LogDevice(properties);
        if (q.setDevice(device) != TezDeviceSuccess)
            return 4100;
        size_t freeBytes = 0, totalBytes = 0;
        q.memGetInfo(&freeBytes, &totalBytes);
        TezLogger::debug("  CUDA Available Memory: %.1f MB\n", Megabytes(freeBytes));
        TezLogger::debug("  CUDA Total Memory: %.1f MB\n\n", Megabytes(totalBytes));
        g_memoryAtInit.push_back({device, freeBytes});
    }
    q.setDevice(0);
    return g_memoryAtInit.empty() ? 4101 : 0;
}

int InitializeCUDA()
{
    static TezCudaDeviceQueries const runtime{&TezDeviceGetCount, &TezDeviceGetProperties, &TezDeviceSetCurrent,
                                              &TezDeviceGetCurrent, &TezDeviceMemGetInfo};
    return TezInitializeCUDAWith(runtime);
}

size_t TezGetFreeMemoryCUDA()
{
    size_t freeBytes = 0, totalBytes = 0;
    TezDeviceMemGetInfo(&freeBytes, &totalBytes);
    return freeBytes;
}

size_t TezGetTotalMemoryCUDA()
{
    size_t freeBytes = 0, totalBytes = 0;
    TezDeviceMemGetInfo(&freeBytes, &totalBytes);
    return totalBytes;
}

size_t TezGetMemoryAtInitCUDA()
{
    int device = 0;
    TezDeviceGetCurrent(&device);
    for (InitMemory const& entry : g_memoryAtInit)
        if (entry.device == device)
            return entry.freeBytes;
    return TezGetTotalMemoryCUDA();
}

namespace {

void LogLargeAllocation(double bytes)
{
    double const megabytes = bytes / (1024.0 * 1024.0);
    if (megabytes > 250.0 &&
        (TezLogger::GetFileLevel() <= TezLogger::Debug || TezLogger::GetConsoleLevel() <= TezLogger::Debug))
        TezLogger::debug("CUDA Alloc %.2f MB  Avail: %.1f MB\n", megabytes, Megabytes(TezGetFreeMemoryCUDA()));
}

} // namespace

int cudaMallocLogged(void** pointer, size_t bytes)
{
    LogLargeAllocation(double(bytes));
    return TezDeviceMalloc(pointer, bytes);
}

int cudaMallocPitchLogged(void** pointer, size_t* pitch, size_t widthBytes, size_t height)
{
    LogLargeAllocation(double(widthBytes) * double(height));
    return TezDeviceMallocPitch(pointer, pitch, widthBytes, height);
}

int cudaMallocAndCopyLogged(void** pointer, void const* source, size_t bytes)
{
    int const status = cudaMallocLogged(pointer, bytes);
    if (status != TezDeviceSuccess)
        return status;
    return TezDeviceMemcpy(*pointer, source, bytes, TezDeviceHostToDevice);
}
