#include "platform/DeviceBuffer.h"

#include "platform/DeviceMemory.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

TezDeviceBuffer::TezDeviceBuffer(size_t widthBytes, size_t rows, bool onDevice)
    : m_widthBytes(widthBytes), m_rows(rows), m_onDevice(onDevice)
{
    if (widthBytes == 0 || rows == 0)
        return;
    if (onDevice) {
        if (TezDeviceMallocPitch(&m_data, &m_pitch, widthBytes, rows) != TezDeviceSuccess || !m_data)
            throw std::runtime_error("TezDeviceBuffer: cannot allocate " + std::to_string(rows) + " rows of " +
                                     std::to_string(widthBytes) + " bytes on the device");
        TezDeviceMemset2D(m_data, m_pitch, 0, widthBytes, rows);
        return;
    }
    m_data = std::calloc(rows, widthBytes);
    if (!m_data)
        throw std::bad_alloc();
    m_pitch = widthBytes;
}

TezDeviceBuffer::~TezDeviceBuffer() { Release(); }

TezDeviceBuffer::TezDeviceBuffer(TezDeviceBuffer&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)), m_pitch(other.m_pitch), m_widthBytes(other.m_widthBytes),
      m_rows(other.m_rows), m_onDevice(other.m_onDevice)
{
}

TezDeviceBuffer& TezDeviceBuffer::operator=(TezDeviceBuffer&& other) noexcept
{
    if (this != &other) {
        Release();
        m_data = std::exchange(other.m_data, nullptr);
        m_pitch = other.m_pitch;
        m_widthBytes = other.m_widthBytes;
        m_rows = other.m_rows;
        m_onDevice = other.m_onDevice;
    }
    return *this;
}

void TezDeviceBuffer::Release()
{
    if (!m_data)
        return;
    if (m_onDevice)
        TezDeviceFree(m_data);
    else
        std::free(m_data);
    m_data = nullptr;
}

int TezDeviceBuffer::Upload(void const* source, size_t bytes)
{
    if (!source || bytes > m_widthBytes || (bytes > 0 && !m_data))
        return TezDeviceErrorInvalidValue;
    if (m_onDevice)
        return TezDeviceMemcpy(m_data, source, bytes, TezDeviceHostToDevice);
    std::memcpy(m_data, source, bytes);
    return TezDeviceSuccess;
}

int TezDeviceBuffer::Download(void* destination, size_t first, size_t count) const
{
    if (!destination || first + count > m_rows)
        return TezDeviceErrorInvalidValue;
    if (count == 0)
        return TezDeviceSuccess;
    return TezCopyRowsToHost(m_onDevice, destination, static_cast<char const*>(m_data) + first * m_pitch, m_pitch,
                             m_widthBytes, count);
}

int TezFillRows(bool onDevice, void* data, size_t pitch, uint8_t byte, size_t widthBytes, size_t rows)
{
    if (onDevice)
        return TezDeviceMemset2D(data, pitch, byte, widthBytes, rows);
    for (size_t r = 0; r < rows; ++r)
        std::memset(static_cast<uint8_t*>(data) + r * pitch, byte, widthBytes);
    return TezDeviceSuccess;
}

int TezCopyRowsToHost(bool onDevice, void* destination, void const* source, size_t pitch, size_t widthBytes,
                      size_t rows)
{
    if (onDevice)
        return TezDeviceMemcpy2D(destination, widthBytes, source, pitch, widthBytes, rows, TezDeviceDeviceToHost);
    for (size_t r = 0; r < rows; ++r)
        std::memcpy(static_cast<uint8_t*>(destination) + r * widthBytes,
                    static_cast<uint8_t const*>(source) + r * pitch, widthBytes);
    return TezDeviceSuccess;
}
