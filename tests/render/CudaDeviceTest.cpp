#include "render/views/CudaDevice.h"
#include "render/gl/OpenGLSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

// A machine of made-up devices for the start-up steps.
struct FakeMachine
{
    int countStatus = 0;
    std::vector<TezDeviceProperties> devices;
    int failingProperties = -1;
    int failingSet = -1;
    std::vector<int> setCalls;
};
FakeMachine g_machine;

int Count(int* count)
{
    *count = int(g_machine.devices.size());
    return g_machine.countStatus;
}
int Properties(TezDeviceProperties* p, int device)
{
    if (device == g_machine.failingProperties)
        return 1;
    *p = g_machine.devices[size_t(device)];
    return 0;
}
int Set(int device)
{
    g_machine.setCalls.push_back(device);
    return device == g_machine.failingSet ? 101 : 0;
}
int Get(int* device)
{
    *device = g_machine.setCalls.empty() ? 0 : g_machine.setCalls.back();
    return 0;
}
int Memory(size_t* freeBytes, size_t* totalBytes)
{
    *freeBytes = size_t(3) << 30;
    *totalBytes = size_t(4) << 30;
    return 0;
}

TezCudaDeviceQueries const kFake{&Count, &Properties, &Set, &Get, &Memory};

TezDeviceProperties Device(int major, int computeMode)
{
    TezDeviceProperties p;
    std::strcpy(p.name, "Fake");
    p.major = major;
    p.computeMode = computeMode;
    return p;
}

} // namespace

// Each way start-up can fail answers its code, with the text the host shows.
TEST(InitializeCUDA, FailuresAnswerTheirCodes)
{
    g_machine = FakeMachine();
    g_machine.countStatus = 35; // no driver
    EXPECT_EQ(4097, TezInitializeCUDAWith(kFake));
    g_machine = FakeMachine();
    EXPECT_EQ(4098, TezInitializeCUDAWith(kFake));
    g_machine.devices = {Device(8, 0), Device(8, 0)};
    g_machine.failingProperties = 1;
    EXPECT_EQ(4099, TezInitializeCUDAWith(kFake));
    g_machine.failingProperties = -1;
    g_machine.failingSet = 0;
    EXPECT_EQ(4100, TezInitializeCUDAWith(kFake));
    // Prohibited, or below capability 1: skipped without a word, none left.
    g_machine = FakeMachine();
    g_machine.devices = {Device(8, 2), Device(0, 0)};
    EXPECT_EQ(4101, TezInitializeCUDAWith(kFake));
    EXPECT_STREQ("ERROR: NVidia CUDA device cannot be used by Morvane.\n",
                 TezOpenGLSupport::TezErrorString(4101).c_str());
    EXPECT_STREQ("ERROR: Failed to initialize NVidia's CUDA library.\n",
                 TezOpenGLSupport::TezErrorString(4097).c_str());
}

TEST(InitializeCUDA, UsableDevicesAreMadeCurrentInTurnThenTheFirst)
{
    g_machine = FakeMachine();
    g_machine.devices = {Device(9, 2), Device(9, 0)};
    EXPECT_EQ(0, TezInitializeCUDAWith(kFake));
    EXPECT_EQ((std::vector<int>{1, 0}), g_machine.setCalls) << "the prohibited device is never made current";
}

// The real runtime: a code of 0 exactly where a device can be counted.
TEST(InitializeCUDA, AgreesWithTheRuntimeHere)
{
    int count = 0;
    bool const device = TezDeviceGetCount(&count) == TezDeviceSuccess && count > 0;
    int const code = InitializeCUDA();
    if (device)
        EXPECT_TRUE(code == 0 || code == 4101) << code;
    else
        EXPECT_TRUE(code == 4097 || code == 4098) << code;
}
