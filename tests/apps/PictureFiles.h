#pragma once
// Pictures the program wrote, for the tests to look at: a file's pixels as
// RGB, top row first, and a comparison that allows what float rounding does.
// Two pictures are alike when fewer than `share` of their pixels differ by
// more than 24 levels in a channel: rounding moves single surface voxels,
// not the picture.

#include "volume/Image.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

inline std::vector<uint8_t> Pixels(std::string const& path, int& width, int& height)
{
    TezImage image;
    EXPECT_TRUE(image.Load(path.c_str())) << path;
    width = image.GetWidth();
    height = image.GetHeight();
    std::vector<uint8_t> pixels(size_t(width) * size_t(height) * 3);
    EXPECT_TRUE(image.ReadPixels(pixels.data(), 3, size_t(width) * 3, true));
    return pixels;
}

inline void ExpectAlikePictures(std::string const& made, std::string const& other, double share)
{
    int w = 0, h = 0, ow = 0, oh = 0;
    std::vector<uint8_t> const a = Pixels(made, w, h), b = Pixels(other, ow, oh);
    ASSERT_EQ(w, ow);
    ASSERT_EQ(h, oh);
    size_t differing = 0;
    for (size_t i = 0; i < a.size(); i += 3)
        for (size_t c = 0; c < 3; ++c)
            if (std::abs(int(a[i + c]) - int(b[i + c])) > 24) {
                ++differing;
                break;
            }
    EXPECT_LT(double(differing), share * w * h) << made << " differs from " << other;
}
