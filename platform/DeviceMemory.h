#pragma once
// Device memory: allocation, copies and fills of memory that kernels read.
//
// With the CUDA runtime compiled in (TEZ_WITH_CUDA) and at least one device
// present, these are the runtime's cudaMalloc, cudaMemcpy and their like.
// Otherwise "device" memory is a host array of the same layout, aligned to
// 256 bytes, and copies are memcpy, so host loops read it as kernels would.
// Which of the two is decided once per process, on the first call.
//
// Every call answers an error code: 0 for success, otherwise the runtime's
// error value (host arrays answer TezDeviceErrorMemoryAllocation when memory
// runs out and TezDeviceErrorInvalidValue for a bad argument, the values the
// runtime uses for the same faults). Callers hand the code to checkCudaError
// (core/CudaCheck.h) with their tag. A size of 0 allocates nothing and
// succeeds with a null pointer.

#include "platform/Api.h"

#include <cstddef>

enum TezDeviceCopyKind {
    TezDeviceHostToHost = 0,
    TezDeviceHostToDevice = 1,
    TezDeviceDeviceToHost = 2,
    TezDeviceDeviceToDevice = 3
};

constexpr int TezDeviceSuccess = 0;
// cudaErrorUnknown, for a failure whose own status was not kept.
constexpr int TezDeviceErrorUnknown = 999;
constexpr int TezDeviceErrorInvalidValue = 1;
constexpr int TezDeviceErrorMemoryAllocation = 2;

// True when the CUDA runtime and a device are in use.
TEZ_API bool TezDeviceIsCuda();

TEZ_API int TezDeviceMalloc(void** pointer, size_t bytes);
// Rows of widthBytes bytes, each starting pitch bytes after the one before.
TEZ_API int TezDeviceMallocPitch(void** pointer, size_t* pitch, size_t widthBytes, size_t height);
TEZ_API int TezDeviceFree(void* pointer);
TEZ_API int TezDeviceMemcpy(void* destination, void const* source, size_t bytes, TezDeviceCopyKind kind);
TEZ_API int TezDeviceMemcpy2D(void* destination, size_t destinationPitch, void const* source, size_t sourcePitch,
                              size_t widthBytes, size_t height, TezDeviceCopyKind kind);
TEZ_API int TezDeviceMemset(void* destination, int value, size_t bytes);
TEZ_API int TezDeviceMemset2D(void* destination, size_t pitch, int value, size_t widthBytes, size_t height);
// Waits for the device's queued work; a no-op on host arrays.
TEZ_API int TezDeviceSynchronize();
// The last error of a launch or call, cleared by reading; always 0 on host arrays.
TEZ_API int TezDeviceGetLastError();
TEZ_API char const* TezDeviceErrorString(int error);
// Free and total memory of the device in bytes (host memory on host arrays).
TEZ_API int TezDeviceMemGetInfo(size_t* freeBytes, size_t* totalBytes);
// Resets the device; a no-op on host arrays.
TEZ_API int TezDeviceReset();

// What device start-up reports of one device. Sizes in bytes, clock in kHz.
struct TezDeviceProperties
{
    char name[256] = {0};
    int major = 0;
    int minor = 0;
    // 0 default, 2 prohibited (no context may be made on it).
    int computeMode = 0;
    int multiProcessorCount = 0;
    int memoryClockRate = 0;
    int memoryBusWidth = 0;
    int asyncEngineCount = 0;
    int canMapHostMemory = 0;
    int concurrentKernels = 0;
    int kernelExecTimeoutEnabled = 0;
    int maxGridSize[3] = {0, 0, 0};
    int maxThreadsDim[3] = {0, 0, 0};
    int maxThreadsPerBlock = 0;
    int maxThreadsPerMultiProcessor = 0;
    size_t memPitch = 0;
    int regsPerBlock = 0;
    int regsPerMultiprocessor = 0;
    size_t sharedMemPerBlock = 0;
    size_t sharedMemPerMultiprocessor = 0;
    size_t totalConstMem = 0;
    size_t totalGlobalMem = 0;
    int unifiedAddressing = 0;
    int warpSize = 0;
};

// cudaErrorNoDevice: what the device queries answer in a library built
// without the CUDA runtime.
constexpr int TezDeviceErrorNoDevice = 100;

// The runtime's own device queries, asked whatever TezDeviceIsCuda says (they
// are what decides whether a device can be used at all).
TEZ_API int TezDeviceGetCount(int* count);
TEZ_API int TezDeviceGetProperties(TezDeviceProperties* properties, int device);
TEZ_API int TezDeviceSetCurrent(int device);
TEZ_API int TezDeviceGetCurrent(int* device);
