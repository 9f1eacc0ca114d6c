#pragma once
// Device start-up for the GPU render view, and the device's memory figures.
//
// InitializeCUDA is called once by the host, before its first GPU render
// view. It logs every usable device (name and capability at info level, the
// rest at debug level), makes device 0 current and answers 0, or one of the
// codes TezOpenGLSupport::TezErrorString spells out:
//   4097 the device count cannot be read (no driver, or no device on some
//        drivers), 4098 no device, 4099 a device's properties cannot be read,
//   4100 a device cannot be made current, 4101 no device is usable (all are
//        in prohibited compute mode or below capability 1).
// A code is no reason to stop: the views then keep their buffers on the host.
// TezInitializeCUDAWith runs the same steps over given queries (tests).

#include "platform/Api.h"
#include "platform/DeviceMemory.h"

#include <cstddef>

struct TezCudaDeviceQueries
{
    int (*getCount)(int* count);
    int (*getProperties)(TezDeviceProperties* properties, int device);
    int (*setDevice)(int device);
    int (*getDevice)(int* device);
    int (*memGetInfo)(size_t* freeBytes, size_t* totalBytes);
};

TEZ_API int InitializeCUDA();
TEZ_API int TezInitializeCUDAWith(TezCudaDeviceQueries const& queries);

// Bytes free and in all on the current device (host memory without one).
TEZ_API size_t TezGetFreeMemoryCUDA();
TEZ_API size_t TezGetTotalMemoryCUDA();
// The free bytes of the current device as start-up found them; the total
// where start-up did not see that device.
TEZ_API size_t TezGetMemoryAtInitCUDA();

// Device allocations that say their size first: above 250 MB, while the log
// file or console shows debug messages, "CUDA Alloc %.2f MB  Avail: %.1f MB"
// at debug level. They answer the device-memory error code (0: success).
TEZ_API int cudaMallocLogged(void** pointer, size_t bytes);
TEZ_API int cudaMallocPitchLogged(void** pointer, size_t* pitch, size_t widthBytes, size_t height);
// Allocates as cudaMallocLogged and, where that worked, copies `bytes` from
// host memory.
TEZ_API int cudaMallocAndCopyLogged(void** pointer, void const* source, size_t bytes);
