// Colour conversions, colour ramps and transfer functions.

#include "volume/ColorRamp.h"
#include "volume/Color.h"
#include "volume/TransferFunction.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>

namespace {

using Rgb = TezVector3<float>;

void ExpectNear(Rgb const& a, Rgb const& b, float tolerance = 1e-5f)
{
    EXPECT_NEAR(a.x, b.x, tolerance);
    EXPECT_NEAR(a.y, b.y, tolerance);
    EXPECT_NEAR(a.z, b.z, tolerance);
}

} // namespace

TEST(TezColor, HsvConversions)
{
    // Primary and secondary hues, and the wrap of hue 1 to 0.
    ExpectNear(TezColor::HsvToRgb(Rgb(0.0f, 1.0f, 1.0f)), Rgb(1, 0, 0));
    ExpectNear(TezColor::HsvToRgb(Rgb(1.0f, 1.0f, 1.0f)), Rgb(1, 0, 0));
    ExpectNear(TezColor::HsvToRgb(Rgb(1.0f / 3, 1.0f, 0.5f)), Rgb(0, 0.5f, 0));
    ExpectNear(TezColor::HsvToRgb(Rgb(0.5f, 0.0f, 0.25f)), Rgb(0.25f, 0.25f, 0.25f));
    ExpectNear(TezColor::HsvToRgb(Rgb(5.0f / 6, 1.0f, 1.0f)), Rgb(1, 0, 1));

    // Round trips over a grid of colours; alpha passes through.
    for (float r = 0; r <= 1.0f; r += 0.25f)
        for (float g = 0; g <= 1.0f; g += 0.25f)
            for (float b = 0; b <= 1.0f; b += 0.25f) {
                TezVector4<float> rgba(r, g, b, 0.3f);
                TezVector4<float> hsva = TezColor::RgbToHsv(rgba);
                EXPECT_GE(hsva.x, 0.0f);
                EXPECT_LE(hsva.x, 1.0f);
                EXPECT_FLOAT_EQ(hsva.w, 0.3f);
                TezVector4<float> back = TezColor::HsvToRgb(hsva);
                ExpectNear(Rgb(back.x, back.y, back.z), Rgb(r, g, b), 1e-5f);
                EXPECT_FLOAT_EQ(back.w, 0.3f);
            }
    float h, s, v;
    TezColor::RgbToHsv(0.0f, 0.0f, 1.0f, h, s, v);
    EXPECT_NEAR(h, 2.0f / 3, 1e-6f);
}

TEST(TezColor, IncrementorStepsOneHsvComponent)
{
    TezColorIncrementor hue(TezVector4<float>(1, 0, 0, 1), 0, 1.0f / 3);
    ++hue;
    ExpectNear(Rgb(hue.GetCurrent().x, hue.GetCurrent().y, hue.GetCurrent().z), Rgb(0, 1, 0));
    ++hue;
    ++hue; // past 1 the hue starts again at red
    ExpectNear(Rgb(hue.GetCurrent().x, hue.GetCurrent().y, hue.GetCurrent().z), Rgb(1, 0, 0), 1e-4f);

    TezColorIncrementor value(TezVector4<float>(0.5f, 0.25f, 0.0f, 0.7f), 2, -0.25f);
    ++value;
    ExpectNear(Rgb(value.GetCurrent().x, value.GetCurrent().y, value.GetCurrent().z), Rgb(0.25f, 0.125f, 0.0f));
    EXPECT_FLOAT_EQ(value.GetCurrent().w, 0.7f);
}

TEST(TezColorRamp, NamesAndTheDefault)
{
    EXPECT_STREQ(TezColorRamp::nameToString(TezColorRamp::Blue), "Blue");
    EXPECT_STREQ(TezColorRamp::nameToString(TezColorRamp::GreyBone), "GreyBone");
    EXPECT_STREQ(TezColorRamp::nameToString(TezColorRamp::YellowPurple), "YellowPurple");
    EXPECT_STREQ(TezColorRamp::nameToString(static_cast<TezColorRamp::Name>(99)), "Hues");

    TezSmoothColorRamp standard, hues(TezColorRamp::Hues), outside(static_cast<TezColorRamp::Name>(-3));
    EXPECT_EQ(standard.GetColors(), hues.GetColors());
    EXPECT_EQ(outside.GetColors(), hues.GetColors());
}

TEST(TezColorRamp, NamedTablesMakeSensibleRamps)
{
    std::set<std::string> distinct;
    for (int n = 0; n < TezColorRamp::NameCount; ++n) {
        auto name = static_cast<TezColorRamp::Name>(n);
        TezColorRamp::ControlTable const& table = TezColorRamp::controlTable(name);
        for (auto const& channel : table.channels)
            for (int k = 0; k + 1 < 9; ++k) { // positions descend until the unused pairs
                if (channel[k + 1].position != 0 || channel[k + 1].value != 0) {
                    EXPECT_GT(channel[k].position, channel[k + 1].position) << TezColorRamp::nameToString(name);
                }
            }
        TezSmoothColorRamp ramp(name);
        ASSERT_EQ(ramp.GetColors().size(), 4096u);
        std::string signature;
        for (Rgb const& c : ramp.GetColors()) {
            for (int i = 0; i < 3; ++i) {
                EXPECT_GE(c[i], 0.0f);
                EXPECT_LE(c[i], 1.0f);
            }
        }
        for (int i = 0; i < 8; ++i) {
            Rgb const& c = ramp.normalizedToColor(i / 7.0);
            signature += std::to_string(int(c.x * 50)) + "," + std::to_string(int(c.y * 50)) + "," +
                         std::to_string(int(c.z * 50)) + ";";
        }
        distinct.insert(signature);
    }
    EXPECT_EQ(distinct.size(), size_t(TezColorRamp::NameCount)); // no two ramps alike

    // The given ramp: green rises from 0 at 64 to 255 at the top, blue
    // rises through (50, 10) and (87, 30) to (151, 90) and is 0 above, red is 0.
    TezSmoothColorRamp blue(TezColorRamp::Blue);
    auto at = [&](int position) { return blue.GetColors()[size_t(position / 254.5 * 4095)]; };
    ExpectNear(blue.GetColors().back(), Rgb(0, 1, 0));
    ExpectNear(blue.GetColors()[0], Rgb(0, 0, 0));
    EXPECT_FLOAT_EQ(at(90).z, 151 / 255.0f);
    EXPECT_FLOAT_EQ(at(30).z, 87 / 255.0f);
    EXPECT_FLOAT_EQ(at(10).z, 50 / 255.0f);
    EXPECT_EQ(at(91).z, 0.0f);
    EXPECT_EQ(at(64).y, 0.0f);
    EXPECT_NEAR(at(160).y, (160 - 64) / 191.0f, 0.01f);
    for (Rgb const& c : blue.GetColors())
        EXPECT_EQ(c.x, 0.0f);

    // Grey runs from black to white evenly; Hot from black through red and yellow to white.
    TezSmoothColorRamp grey(TezColorRamp::Grey);
    ExpectNear(grey.GetColors().front(), Rgb(0, 0, 0));
    ExpectNear(grey.GetColors().back(), Rgb(1, 1, 1));
    ExpectNear(grey.normalizedToColor(0.5), Rgb(0.5f, 0.5f, 0.5f), 2e-3f);
    TezSmoothColorRamp hot(TezColorRamp::Hot);
    EXPECT_GT(hot.normalizedToColor(0.38).x, 0.95f);
    EXPECT_LT(hot.normalizedToColor(0.38).y, 0.05f);
    EXPECT_GT(hot.normalizedToColor(0.76).y, 0.95f);
    ExpectNear(hot.normalizedToColor(1.0), Rgb(1, 1, 1));

    // StepN has N flat bands, apart from one short transition between two.
    for (int n = 2; n <= 5; ++n) {
        TezSmoothColorRamp step(static_cast<TezColorRamp::Name>(TezColorRamp::Step2 + n - 2));
        std::set<float> levels;
        for (int band = 0; band < n; ++band)
            levels.insert(step.normalizedToColor((band + 0.5) / n).x);
        EXPECT_EQ(levels.size(), size_t(n)) << n;
        int flat = 0;
        for (Rgb const& c : step.GetColors())
            flat += levels.count(c.x) != 0 && c.x == c.y && c.y == c.z;
        EXPECT_GE(flat, 4096 - 17 * (n - 1)) << n;
    }
}

TEST(TezColorRamp, LookupsClampAndTablesReachTheEnds)
{
    TezSmoothColorRamp ramp(std::vector<Rgb>{Rgb(1, 0, 0), Rgb(0, 0, 1)}, 0.0f);
    EXPECT_EQ(&ramp.normalizedToColor(1.0), &ramp.GetColors().back());
    EXPECT_EQ(&ramp.normalizedToColor(7.5), &ramp.GetColors().back());
    EXPECT_EQ(&ramp.normalizedToColor(-1.0), &ramp.GetColors().front());
    ExpectNear(ramp.GetColors().front(), Rgb(1, 0, 0));
    ExpectNear(ramp.GetColors().back(), Rgb(0, 0, 1), 1e-3f);

    std::vector<Rgb> one = ramp.generateColorTable(1);
    ASSERT_EQ(one.size(), 1u);
    ExpectNear(one[0], ramp.normalizedToColor(0.0));
    std::vector<Rgb> five = ramp.generateColorTable(5);
    ExpectNear(five[4], ramp.GetColors().back());
    EXPECT_TRUE(ramp.generateColorTable(0).empty());

    // Halfway between two control colours the value is raised by the brightening.
    TezSmoothColorRamp plain(std::vector<Rgb>{Rgb(0.5f, 0, 0), Rgb(0.5f, 0, 0)}, 0.0f);
    TezSmoothColorRamp bright(std::vector<Rgb>{Rgb(0.5f, 0, 0), Rgb(0.5f, 0, 0)});
    EXPECT_NEAR(plain.normalizedToColor(0.5).x, 0.5f, 1e-6f);
    EXPECT_NEAR(bright.normalizedToColor(0.5).x, 0.6f, 1e-3f);
    EXPECT_NEAR(bright.normalizedToColor(0.0).x, 0.5f, 1e-6f);

    TezSmoothColorRamp fromHues(std::vector<float>{0.0f, 1.0f / 3}, 1.0f, 1.0f, 0.0f);
    ExpectNear(fromHues.GetColors().front(), Rgb(1, 0, 0));
    TezSmoothColorRamp single(std::vector<Rgb>{Rgb(0.2f, 0.4f, 0.6f)});
    ExpectNear(single.normalizedToColor(0.7), Rgb(0.2f, 0.4f, 0.6f));
}

TEST(TezColorRamp, DiscreteRamps)
{
    TezDiscreteColorRamp three(std::vector<Rgb>{Rgb(1, 0, 0), Rgb(0, 1, 0), Rgb(0, 0, 1)});
    EXPECT_EQ(three.getNumColors(), 3);
    ExpectNear(three.normalizedToColor(0.33), Rgb(1, 0, 0));
    ExpectNear(three.normalizedToColor(0.34), Rgb(0, 1, 0));
    ExpectNear(three.normalizedToColor(1.0), Rgb(0, 0, 1));
    ExpectNear(three.normalizedToColor(-2.0), Rgb(1, 0, 0));

    // An empty ramp fills itself with six hues on first use.
    TezDiscreteColorRamp empty(std::vector<Rgb>{});
    EXPECT_EQ(empty.getNumColors(), 0);
    ExpectNear(empty.normalizedToColor(0.2), TezColor::HsvToRgb(Rgb(0.333f, 1, 1)));
    EXPECT_EQ(empty.getNumColors(), 6);
    ExpectNear(empty.normalizedToColor(1.0), Rgb(1, 0, 0)); // hue 1 is red

    TezDiscreteColorRamp sampled(TezColorRamp::Grey, 3);
    ASSERT_EQ(sampled.getNumColors(), 3);
    ExpectNear(sampled.GetColors()[2], Rgb(1, 1, 1));
    TezDiscreteColorRamp hues(std::vector<float>{0.5f}, 0.5f, 0.5f);
    ExpectNear(hues.GetColors()[0], Rgb(0.25f, 0.5f, 0.5f));
}

TEST(TezTransferFunction, SamplesThePiecewiseLinearCurve)
{
    std::vector<float> ramp = TezVolumeCreateTransferFunction({{0, 0}, {1, 1}}, 256);
    ASSERT_EQ(ramp.size(), 256u);
    for (int i = 0; i < 256; ++i)
        EXPECT_NEAR(ramp[i], i / 255.0f, 1e-6f);
    EXPECT_EQ(ramp[255], 1.0f);

    // A plateau and a drop; the byte form truncates.
    std::vector<TezVector2<float>> points{{0, 0}, {0.25f, 1}, {0.5f, 1}, {1, 0.2f}};
    uint8_t bytes[5];
    TezVolumeCreateTransferFunction(points, bytes, 5);
    EXPECT_EQ(bytes[0], 0);
    EXPECT_EQ(bytes[1], 255);
    EXPECT_EQ(bytes[2], 255);
    EXPECT_NEAR(bytes[3], 153, 1);
    EXPECT_NEAR(bytes[4], 51, 1);

    // Points closer than the step: only one is passed per sample.
    std::vector<float> coarse = TezVolumeCreateTransferFunction({{0, 0}, {0.1f, 1}, {0.2f, 0}, {1, 0}}, 3);
    EXPECT_FLOAT_EQ(coarse[1], -3.0f); // (0.1, 1) to (0.2, 0) extended to 0.5
    EXPECT_FLOAT_EQ(coarse[2], 0.0f);
    EXPECT_NO_THROW(TezVolumeCreateTransferFunction({{0, 0}, {1, 2}}, bytes, 5));
    EXPECT_EQ(bytes[4], 255);

    EXPECT_THROW(TezVolumeCreateTransferFunction({{0, 0}}, 16), std::runtime_error);
    EXPECT_THROW(TezVolumeCreateTransferFunction({}, bytes, 5), std::runtime_error);
}
