#include "volume/ColorRamp.h"

#include "volume/Color.h"

#include <algorithm>
#include <cmath>

namespace {

char const* const kNames[TezColorRamp::NameCount] = {
    "Blue",          "Blue2",       "BlueGreenRed", "Grey",    "GreyBone",  "GreyFlame",    "Hot",
    "HSV",           "HSV2",        "Hues",         "Hues2",   "Hues3",     "Pulse",        "Purple",
    "PurpleBlue",    "PurpleGreen", "Red",          "RedBlue", "RedCopper", "RedGreenBlue", "RedPurple",
    "RedYellowBlue", "Step2",       "Step3",        "Step4",   "Step5",     "YellowPurple"};

} // namespace

// ---- TezColorRamp ----

char const* TezColorRamp::nameToString(Name name)
{
    return name >= 0 && name < NameCount ? kNames[name] : kNames[DefaultName];
}

TezColorRamp::~TezColorRamp() = default;

double TezColorRamp::clampNormalized(double x) { return std::clamp(x, 0.0, 0.99999999); }

std::vector<TezVector3<float>> TezColorRamp::generateColorTable(int n) const
{
    std::vector<TezVector3<float>> table;
    table.reserve(static_cast<size_t>(std::max(n, 0)));
    for (int i = 0; i < n; ++i)
        table.push_back(normalizedToColor(n < 2 ? 0.0 : static_cast<double>(i) / (n - 1)));
    return table;
}

// ---- TezSmoothColorRamp ----

TezSmoothColorRamp::TezSmoothColorRamp() { initUsingTable(DefaultName); }

TezSmoothColorRamp::TezSmoothColorRamp(Name name) { initUsingTable(name); }

TezSmoothColorRamp::TezSmoothColorRamp(std::vector<float> const& hues) { initUsingHues(hues, 1.0f, 1.0f, 0.1f); }

TezSmoothColorRamp::TezSmoothColorRamp(std::vector<float> const& hues, float saturation, float value, float brighten)
{
    initUsingHues(hues, saturation, value, brighten);
}

TezSmoothColorRamp::TezSmoothColorRamp(std::vector<TezVector3<float>> const& colors) { initUsingRgb(colors, 0.1f); }

TezSmoothColorRamp::TezSmoothColorRamp(std::vector<TezVector3<float>> const& colors, float brighten)
{
    initUsingRgb(colors, brighten);
}

TezVector3<float> const& TezSmoothColorRamp::normalizedToColor(double x) const
{
    return m_colors[static_cast<size_t>(NumColors * clampNormalized(x))];
}

void TezSmoothColorRamp::initUsingTable(Name name)
{
    ControlTable const& table = controlTable(name);
    m_colors.assign(NumColors, TezVector3<float>(0.0f, 0.0f, 0.0f));
    auto index = [](int position) {
        return std::min(NumColors - 1, static_cast<int>(position / 254.5 * (NumColors - 1)));
    };
    for (int channel = 0; channel < 3; ++channel) {
        ControlPair const* pairs = table.channels[channel];
        // Lower segments first, so that each segment's top overwrites the
        // shared entry.
        for (int k = 7; k >= 0; --k) {
            ControlPair const& high = pairs[k];
            ControlPair const& low = pairs[k + 1];
            int const lo = index(low.position), hi = index(high.position);
            double const slope = lo != hi ? (double(high.value) - double(low.value)) / (hi - lo) : 0.0;
            for (int j = lo; j <= hi; ++j)
                m_colors[static_cast<size_t>(j)][channel] = static_cast<float>((low.value + (j - lo) * slope) / 255.0);
        }
    }
}

void TezSmoothColorRamp::initUsingRgb(std::vector<TezVector3<float>> const& colors, float brighten)
{
    m_colors.assign(NumColors, TezVector3<float>(0.0f, 0.0f, 0.0f));
    size_t const n = colors.size();
    if (n == 0)
        return;
    for (int i = 0; i < NumColors; ++i) {
        double const p = i / (NumColors - 0.99999999) * static_cast<double>(n - 1);
        size_t const k = static_cast<size_t>(p);
        float const f = static_cast<float>(p - static_cast<double>(k));
        TezVector3<float> rgb = colors[k] * (1.0f - f);
        if (k + 1 < n)
            rgb += colors[k + 1] * f;
        TezVector3<float> hsv = TezColor::RgbToHsv(rgb);
        hsv.z = std::clamp(hsv.z + 2.0f * (0.5f - std::fabs(f - 0.5f)) * brighten, 0.0f, 1.0f);
        m_colors[static_cast<size_t>(i)] = TezColor::HsvToRgb(hsv);
    }
}

void TezSmoothColorRamp::initUsingHues(std::vector<float> const& hues, float saturation, float value, float brighten)
{
    std::vector<TezVector3<float>> colors;
    colors.reserve(hues.size());
    for (float hue : hues)
        colors.push_back(TezColor::HsvToRgb(TezVector3<float>(hue, saturation, value)));
    initUsingRgb(colors, brighten);
}

// ---- TezDiscreteColorRamp ----

TezDiscreteColorRamp::TezDiscreteColorRamp(Name name, int count)
    : m_colors(TezSmoothColorRamp(name).generateColorTable(count))
{
}

TezDiscreteColorRamp::TezDiscreteColorRamp(std::vector<TezVector3<float>> const& colors) : m_colors(colors) {}

TezDiscreteColorRamp::TezDiscreteColorRamp(std::vector<float> const& hues) { initUsingHues(hues, 1.0f, 1.0f); }

TezDiscreteColorRamp::TezDiscreteColorRamp(std::vector<float> const& hues, float saturation, float value)
{
    initUsingHues(hues, saturation, value);
}

void TezDiscreteColorRamp::initUsingHues(std::vector<float> const& hues, float saturation, float value)
{
    m_colors.clear();
    for (float hue : hues)
        m_colors.push_back(TezColor::HsvToRgb(TezVector3<float>(hue, saturation, value)));
}

TezVector3<float> const& TezDiscreteColorRamp::normalizedToColor(double x) const
{
    if (m_colors.empty()) {
        static float const standardHues[] = {0.183f, 0.333f, 0.516f, 0.666f, 0.849f, 1.0f};
        for (float hue : standardHues)
            m_colors.push_back(TezColor::HsvToRgb(TezVector3<float>(hue, 1.0f, 1.0f)));
    }
    return m_colors[static_cast<size_t>(static_cast<double>(m_colors.size()) * clampNormalized(x))];
}
