#include "math/IdColor.h"

#include <gtest/gtest.h>

TEST(TezIdColor, ColourCarriesFourBytesButDecodesThree)
{
    TezVector4<float> colour = TezIdToColor(0x01020304u);
    EXPECT_FLOAT_EQ(4.0f / 255.0f, colour.x);
    EXPECT_FLOAT_EQ(3.0f / 255.0f, colour.y);
    EXPECT_FLOAT_EQ(2.0f / 255.0f, colour.z);
    EXPECT_FLOAT_EQ(1.0f / 255.0f, colour.w);

    auto toBytes = [](TezVector4<float> c) {
        auto byte = [](float v) { return static_cast<unsigned char>(v * 255.0f + 0.5f); };
        return TezVector4<unsigned char>(byte(c.x), byte(c.y), byte(c.z), byte(c.w));
    };
    EXPECT_EQ(0x020304u, TezIdFromColor(toBytes(colour)));
    EXPECT_EQ(0xABCDEFu, TezIdFromColor(toBytes(TezIdToColor(0xABCDEFu))));
}
