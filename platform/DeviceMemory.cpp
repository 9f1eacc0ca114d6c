#include "platform/DeviceMemory.h"

#include "platform/System.h"

#include <cstdlib>
#include <cstring>

#if TEZ_HAVE_CUDA_RUNTIME
#    include <cuda_runtime_api.h>
#endif

namespace {

constexpr size_t kHostAlignment = 256;

size_t RoundUp(size_t value, size_t unit) { return (value + unit - 1) / unit * unit; }

#if TEZ_HAVE_CUDA_RUNTIME
// TEZ_DEVICE_HOST=1 keeps a machine with a device on host arrays, so that the
// host path can be checked there too. Without a device cudaGetDeviceCount
// answers an error rather than a count of 0.
bool DetectCuda()
{
    if (TezGetEnv("TEZ_DEVICE_HOST") == "1")
        return false;
    int count = 0;
    return cudaGetDeviceCount(&count) == cudaSuccess && count > 0;
}
#endif

int HostMalloc(void** pointer, size_t bytes)
{
    if (!pointer)
        return TezDeviceErrorInvalidValue;
    *pointer = nullptr;
    if (bytes == 0)
        return TezDeviceSuccess;
    if (bytes > SIZE_MAX - kHostAlignment)
        return TezDeviceErrorMemoryAllocation;
    *pointer = std::aligned_alloc(kHostAlignment, RoundUp(bytes, kHostAlignment));
    return *pointer ? TezDeviceSuccess : TezDeviceErrorMemoryAllocation;
}

} // namespace

bool TezDeviceIsCuda()
{
#if TEZ_HAVE_CUDA_RUNTIME
    static bool const cuda = DetectCuda();
    return cuda;
#else
    return false;
#endif
}

int TezDeviceMalloc(void** pointer, size_t bytes)
{
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda()) {
        if (bytes == 0) {
            *pointer = nullptr;
            return TezDeviceSuccess;
        }
        return static_cast<int>(cudaMalloc(pointer, bytes));
    }
#endif
    return HostMalloc(pointer, bytes);
}

int TezDeviceMallocPitch(void** pointer, size_t* pitch, size_t widthBytes, size_t height)
{
    if (!pointer || !pitch)
        return TezDeviceErrorInvalidValue;
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda())
        return static_cast<int>(cudaMallocPitch(pointer, pitch, widthBytes, height));
#endif
    *pitch = RoundUp(widthBytes, kHostAlignment);
    if (height != 0 && *pitch > SIZE_MAX / height)
        return TezDeviceErrorMemoryAllocation;
    return HostMalloc(pointer, *pitch * height);
}

int TezDeviceFree(void* pointer)
{
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda())
        return static_cast<int>(cudaFree(pointer));
#endif
    std::free(pointer);
    return TezDeviceSuccess;
}

int TezDeviceMemcpy(void* destination, void const* source, size_t bytes, TezDeviceCopyKind kind)
{
    if (bytes == 0)
        return TezDeviceSuccess;
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda())
        return static_cast<int>(cudaMemcpy(destination, source, bytes, static_cast<cudaMemcpyKind>(kind)));
#endif
    if (!destination || !source)
        return TezDeviceErrorInvalidValue;
    std::memmove(destination, source, bytes);
    return TezDeviceSuccess;
}

int TezDeviceMemcpy2D(void* destination, size_t destinationPitch, void const* source, size_t sourcePitch,
                      size_t widthBytes, size_t height, TezDeviceCopyKind kind)
{
    if (widthBytes == 0 || height == 0)
        return TezDeviceSuccess;
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda())
        return static_cast<int>(cudaMemcpy2D(destination, destinationPitch, source, sourcePitch, widthBytes, height,
                                             static_cast<cudaMemcpyKind>(kind)));
#endif
    if (!destination || !source || widthBytes > destinationPitch || widthBytes > sourcePitch)
        return TezDeviceErrorInvalidValue;
    auto* to = static_cast<unsigned char*>(destination);
    auto const* from = static_cast<unsigned char const*>(source);
    for (size_t row = 0; row < height; ++row)
        std::memmove(to + row * destinationPitch, from + row * sourcePitch, widthBytes);
    return TezDeviceSuccess;
}

int TezDeviceMemset(void* destination, int value, size_t bytes)
{
    if (bytes == 0)
        return TezDeviceSuccess;
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda())
        return static_cast<int>(cudaMemset(destination, value, bytes));
#endif
    if (!destination)
        return TezDeviceErrorInvalidValue;
    std::memset(destination, value, bytes);
    return TezDeviceSuccess;
}

int TezDeviceMemset2D(void* destination, size_t pitch, int value, size_t widthBytes, size_t height)
{
    if (widthBytes == 0 || height == 0)
        return TezDeviceSuccess;
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda())
        return static_cast<int>(cudaMemset2D(destination, pitch, value, widthBytes, height));
#endif
    if (!destination || widthBytes > pitch)
        return TezDeviceErrorInvalidValue;
    auto* to = static_cast<unsigned char*>(destination);
    for (size_t row = 0; row < height; ++row)
        std::memset(to + row * pitch, value, widthBytes);
    return TezDeviceSuccess;
}

int TezDeviceSynchronize()
{
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda())
        return static_cast<int>(cudaDeviceSynchronize());
#endif
    return TezDeviceSuccess;
}

int TezDeviceGetLastError()
{
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda())
        return static_cast<int>(cudaGetLastError());
#endif
    return TezDeviceSuccess;
}

char const* TezDeviceErrorString(int error)
{
#if TEZ_HAVE_CUDA_RUNTIME
    // The runtime names its codes with or without a device.
    return cudaGetErrorString(static_cast<cudaError_t>(error));
#else
    switch (error) {
    case TezDeviceSuccess:
        return "no error";
    case TezDeviceErrorInvalidValue:
        return "invalid argument";
    case TezDeviceErrorMemoryAllocation:
        return "out of memory";
    case TezDeviceErrorNoDevice:
        return "no CUDA-capable device is detected";
    default:
        return "unrecognized error code";
    }
#endif
}

int TezDeviceMemGetInfo(size_t* freeBytes, size_t* totalBytes)
{
    if (!freeBytes || !totalBytes)
        return TezDeviceErrorInvalidValue;
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda())
        return static_cast<int>(cudaMemGetInfo(freeBytes, totalBytes));
#endif
    double available = TezGetAvailableMemory();
    double total = TezGetTotalMemory();
    *freeBytes = available > 0 ? static_cast<size_t>(available) : 0;
    *totalBytes = total > 0 ? static_cast<size_t>(total) : 0;
    return TezDeviceSuccess;
}

int TezDeviceReset()
{
#if TEZ_HAVE_CUDA_RUNTIME
    if (TezDeviceIsCuda())
        return static_cast<int>(cudaDeviceReset());
#endif
    return TezDeviceSuccess;
}

int TezDeviceGetCount(int* count)
{
    if (!count)
        return TezDeviceErrorInvalidValue;
    *count = 0;
#if TEZ_HAVE_CUDA_RUNTIME
    return static_cast<int>(cudaGetDeviceCount(count));
#else
    return TezDeviceErrorNoDevice;
#endif
}

int TezDeviceGetProperties(TezDeviceProperties* properties, int device)
{
    if (!properties)
        return TezDeviceErrorInvalidValue;
    *properties = TezDeviceProperties();
#if TEZ_HAVE_CUDA_RUNTIME
    cudaDeviceProp p{};
    cudaError_t status = cudaGetDeviceProperties(&p, device);
    if (status != cudaSuccess)
        return static_cast<int>(status);
    std::memcpy(properties->name, p.name, sizeof(properties->name) - 1);
    properties->major = p.major;
    properties->minor = p.minor;
    properties->multiProcessorCount = p.multiProcessorCount;
    properties->memoryBusWidth = p.memoryBusWidth;
    properties->asyncEngineCount = p.asyncEngineCount;
    properties->canMapHostMemory = p.canMapHostMemory;
    properties->concurrentKernels = p.concurrentKernels;
    for (int i = 0; i < 3; ++i) {
        properties->maxGridSize[i] = p.maxGridSize[i];
        properties->maxThreadsDim[i] = p.maxThreadsDim[i];
    }
    properties->maxThreadsPerBlock = p.maxThreadsPerBlock;
    properties->maxThreadsPerMultiProcessor = p.maxThreadsPerMultiProcessor;
    properties->memPitch = p.memPitch;
    properties->regsPerBlock = p.regsPerBlock;
    properties->regsPerMultiprocessor = p.regsPerMultiprocessor;
    properties->sharedMemPerBlock = p.sharedMemPerBlock;
    properties->sharedMemPerMultiprocessor = p.sharedMemPerMultiprocessor;
    properties->totalConstMem = p.totalConstMem;
    properties->totalGlobalMem = p.totalGlobalMem;
    properties->unifiedAddressing = p.unifiedAddressing;
    properties->warpSize = p.warpSize;
    // Recent runtimes dropped these from the record; they are attributes.
    status = cudaDeviceGetAttribute(&properties->computeMode, cudaDevAttrComputeMode, device);
    if (status == cudaSuccess)
        status = cudaDeviceGetAttribute(&properties->memoryClockRate, cudaDevAttrMemoryClockRate, device);
    if (status == cudaSuccess)
        status = cudaDeviceGetAttribute(&properties->kernelExecTimeoutEnabled, cudaDevAttrKernelExecTimeout, device);
    return static_cast<int>(status);
#else
    (void)device;
    return TezDeviceErrorNoDevice;
#endif
}

int TezDeviceSetCurrent(int device)
{
#if TEZ_HAVE_CUDA_RUNTIME
    return static_cast<int>(cudaSetDevice(device));
#else
    (void)device;
    return TezDeviceErrorNoDevice;
#endif
}

int TezDeviceGetCurrent(int* device)
{
    if (!device)
        return TezDeviceErrorInvalidValue;
    *device = 0;
#if TEZ_HAVE_CUDA_RUNTIME
    return static_cast<int>(cudaGetDevice(device));
#else
    return TezDeviceErrorNoDevice;
#endif
}
