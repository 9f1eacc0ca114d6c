#pragma once
// TezDeviceBuffer: owned rows of memory that kernels read and write. Made
// for the device it is device memory (TezDeviceMallocPitch: on the GPU where
// the CUDA runtime is in use, host arrays otherwise); made for the host it is
// plain host memory, rows packed. Both start zeroed. Movable, not copyable,
// freed on destruction.
//
// A failed allocation throws std::runtime_error naming the size. The copies
// and fills answer the device-memory error code (0 for success); callers
// hand it to checkCudaError with their tag.

#include "platform/Api.h"

#include <cstddef>
#include <cstdint>

class TEZ_API TezDeviceBuffer
{
public:
    TezDeviceBuffer() = default;
    TezDeviceBuffer(size_t widthBytes, size_t rows, bool onDevice);
    ~TezDeviceBuffer();
    TezDeviceBuffer(TezDeviceBuffer&& other) noexcept;
    TezDeviceBuffer& operator=(TezDeviceBuffer&& other) noexcept;
    TezDeviceBuffer(const TezDeviceBuffer&) = delete;
    TezDeviceBuffer& operator=(const TezDeviceBuffer&) = delete;

    void* Get() const { return m_data; }
    size_t GetPitch() const { return m_pitch; }
    size_t GetWidthBytes() const { return m_widthBytes; }
    size_t GetRows() const { return m_rows; }
    bool IsOnDevice() const { return m_onDevice; }

    // Copies bytes from host memory to the start of the first row; at most
    // one row's width.
    int Upload(void const* source, size_t bytes);
    // Copies rows [first, first + count) to host memory, packed.
    int Download(void* destination, size_t first, size_t count) const;

private:
    void Release();

    void* m_data = nullptr;
    size_t m_pitch = 0;
    size_t m_widthBytes = 0;
    size_t m_rows = 0;
    bool m_onDevice = false;
};

// Byte fill of rows of memory of either side (onDevice: device memory).
TEZ_API int TezFillRows(bool onDevice, void* data, size_t pitch, uint8_t byte, size_t widthBytes, size_t rows);
// Copies rows of memory of either side to host memory, packed.
TEZ_API int TezCopyRowsToHost(bool onDevice, void* destination, void const* source, size_t pitch, size_t widthBytes,
                              size_t rows);
