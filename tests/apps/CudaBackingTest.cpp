// The GPU render view on its device backing (device buffers, CUDA-GL
// interoperation) against its host backing (host loops, texture uploads):
// the same pictures through the real program, once with the device and once
// kept on host arrays (TEZ_DEVICE_HOST=1). Runs only where a GPU is in use.

#include "tests/apps/PictureFiles.h"
#include "volume/device/OctreeRender.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

int RunTez(std::string const& environment, std::string const& arguments)
{
    return std::system((environment + " '" TEZ_PROGRAM "' render " + arguments + " > /dev/null").c_str());
}

} // namespace

TEST(CudaBacking, PicturesMatchTheHostBacking)
{
    if (!TezOctreeKernelsHaveDevice())
        GTEST_SKIP() << "no CUDA device in use here";
    std::string const dir = ::testing::TempDir() + "tez-cuda-backing";
    std::filesystem::create_directories(dir);
    for (std::string const options : {"", "--transparent --layers 3 --cut y", "--box --view isometric"}) {
        std::string const device = dir + "/device.png", host = dir + "/host.png";
        ASSERT_EQ(0, RunTez("", "--size 320x240 " + options + " -o " + device)) << options;
        ASSERT_EQ(0, RunTez("TEZ_DEVICE_HOST=1", "--size 320x240 " + options + " -o " + host)) << options;
        // The kernels are the same source without fused multiply-adds; the
        // odd surface voxel may still round the other way.
        SCOPED_TRACE("options '" + options + "'");
        ExpectAlikePictures(device, host, 0.005);
    }
}
