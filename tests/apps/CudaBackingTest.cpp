// The GPU render view on its device backing (device buffers, CUDA-GL
// interoperation) against its host backing (host loops, texture uploads):
// the same pictures through the real program, once with the device and once
// kept on host arrays (TEZ_DEVICE_HOST=1). Runs only where a GPU is in use.

#include "volume/Image.h"
#include "volume/device/OctreeRender.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

std::vector<uint8_t> Pixels(std::string const& path, int& width, int& height)
{
    TezImage image;
    EXPECT_TRUE(image.Load(path.c_str())) << path;
    width = image.GetWidth();
    height = image.GetHeight();
    std::vector<uint8_t> pixels(size_t(width) * size_t(height) * 3);
    EXPECT_TRUE(image.ReadPixels(pixels.data(), 3, size_t(width) * 3, true));
    return pixels;
}

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
        int w = 0, h = 0, hw = 0, hh = 0;
        std::vector<uint8_t> const a = Pixels(device, w, h), b = Pixels(host, hw, hh);
        ASSERT_EQ(w, hw);
        ASSERT_EQ(h, hh);
        // The kernels are the same source without fused multiply-adds; the
        // odd surface voxel may still round the other way.
        size_t differing = 0;
        for (size_t i = 0; i < a.size(); i += 3)
            for (size_t c = 0; c < 3; ++c)
                if (std::abs(int(a[i + c]) - int(b[i + c])) > 24) {
                    ++differing;
                    break;
                }
        EXPECT_LT(double(differing), 0.005 * w * h) << "options '" << options << "'";
    }
}
