#include "platform/DeviceMemory.h"
#include "core/CudaCheck.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

// On a machine without a device (and in the default build) device memory is
// a host array: these checks read it directly when that is so.
TEST(DeviceMemory, AllocateCopyFill)
{
    void* device = nullptr;
    ASSERT_EQ(TezDeviceMalloc(&device, 1000), TezDeviceSuccess);
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(device) % 256, 0u);

    std::vector<uint8_t> host(1000);
    for (size_t i = 0; i < host.size(); ++i)
        host[i] = static_cast<uint8_t>(i * 7);
    ASSERT_EQ(TezDeviceMemcpy(device, host.data(), host.size(), TezDeviceHostToDevice), 0);
    ASSERT_EQ(TezDeviceMemset(device, 0x5A, 10), 0);

    void* other = nullptr;
    ASSERT_EQ(TezDeviceMalloc(&other, 1000), 0);
    ASSERT_EQ(TezDeviceMemcpy(other, device, 1000, TezDeviceDeviceToDevice), 0);
    std::vector<uint8_t> back(1000);
    ASSERT_EQ(TezDeviceMemcpy(back.data(), other, back.size(), TezDeviceDeviceToHost), 0);
    EXPECT_EQ(back[9], 0x5A);
    EXPECT_EQ(back[10], host[10]);
    EXPECT_EQ(back[999], host[999]);
    if (!TezDeviceIsCuda()) {
        EXPECT_EQ(static_cast<uint8_t*>(device)[500], host[500]);
    }

    EXPECT_EQ(TezDeviceFree(device), 0);
    EXPECT_EQ(TezDeviceFree(other), 0);
    EXPECT_EQ(TezDeviceFree(nullptr), 0);
    void* empty = &back;
    EXPECT_EQ(TezDeviceMalloc(&empty, 0), 0);
    EXPECT_EQ(empty, nullptr);
    EXPECT_TRUE(checkCudaError(0, "DeviceMemory.A"));
    EXPECT_TRUE(checkLastCudaError("DeviceMemory.B"));
}

TEST(DeviceMemory, PitchedRows)
{
    void* device = nullptr;
    size_t pitch = 0;
    ASSERT_EQ(TezDeviceMallocPitch(&device, &pitch, 100, 6), 0);
    ASSERT_GE(pitch, 100u);
    ASSERT_EQ(TezDeviceMemset2D(device, pitch, 0xFF, 100, 6), 0);
    std::vector<uint8_t> image(50 * 6, 3);
    // A narrower block into the middle of each row.
    ASSERT_EQ(
        TezDeviceMemcpy2D(static_cast<uint8_t*>(device) + 20, pitch, image.data(), 50, 50, 6, TezDeviceHostToDevice),
        0);
    std::vector<uint8_t> rows(100 * 6);
    ASSERT_EQ(TezDeviceMemcpy2D(rows.data(), 100, device, pitch, 100, 6, TezDeviceDeviceToHost), 0);
    for (int row = 0; row < 6; ++row) {
        EXPECT_EQ(rows[row * 100 + 19], 0xFF);
        EXPECT_EQ(rows[row * 100 + 20], 3);
        EXPECT_EQ(rows[row * 100 + 69], 3);
        EXPECT_EQ(rows[row * 100 + 70], 0xFF);
    }
    EXPECT_EQ(TezDeviceFree(device), 0);
}

TEST(DeviceMemoryDeathTest, FailedCheckEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The write to address 0 leaves the stack to the crash handler.
    EXPECT_EXIT(checkCudaError(TezDeviceErrorMemoryAllocation, "TezTest::Check.A"), testing::KilledBySignal(SIGSEGV),
                "");
}

TEST(DeviceMemoryDeathTest, HostArraysOnRequest)
{
    // The choice is made once per process: a fresh child makes it here.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("TEZ_DEVICE_HOST", "1", 1);
            std::exit(TezDeviceIsCuda() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}
