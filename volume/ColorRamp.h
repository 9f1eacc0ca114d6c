#pragma once
// Colour ramps: maps from a normalised value (0 to 1, clamped) to an RGB
// colour of floats in 0 .. 1.
//
// TezSmoothColorRamp holds exactly 4096 colours, so that a lookup is one
// table read. It is built from one of the named control tables, from
// control colours blended linearly (with a little extra brightness halfway
// between two of them, which keeps blends from looking dull), or from hues.
// TezDiscreteColorRamp holds any number of colours and maps the value to one
// of them; an empty one fills itself with six standard hues on first use,
// which is the one lookup that is not safe to run concurrently.
//
// The named tables: three channels (red, green, blue) of up to 9 control
// pairs (value 0..255, position 0..255), highest position first; unused
// pairs are (0, 0). Names outside the list select Hues, the default.

#include "math/Vector.h"
#include "platform/Api.h"

#include <vector>

class TEZ_API TezColorRamp
{
public:
    enum Name {
        Blue,
        Blue2,
        BlueGreenRed,
        Grey,
        GreyBone,
        GreyFlame,
        Hot,
        HSV,
        HSV2,
        Hues,
        Hues2,
        Hues3,
        Pulse,
        Purple,
        PurpleBlue,
        PurpleGreen,
        Red,
        RedBlue,
        RedCopper,
        RedGreenBlue,
        RedPurple,
        RedYellowBlue,
        Step2,
        Step3,
        Step4,
        Step5,
        YellowPurple,
        NameCount
    };

    struct ControlPair
    {
        unsigned char value, position;
    };
    struct ControlTable
    {
        ControlPair channels[3][9];
    };

    static constexpr Name DefaultName = Hues;

    // The ramp's text, e.g. "GreyBone"; names outside the list give "Hues".
    static char const* nameToString(Name name);
    // The control table of a name; names outside the list give Hues's.
    static ControlTable const& controlTable(Name name);

    virtual ~TezColorRamp();
    virtual TezVector3<float> const& normalizedToColor(double x) const = 0;
    // n colours, colour i for i / (n - 1); a single colour is the one for 0.
    virtual std::vector<TezVector3<float>> generateColorTable(int n) const;
    virtual int getNumColors() const = 0;

protected:
    TezColorRamp() = default;
    TezColorRamp(TezColorRamp const&) = default;
    TezColorRamp& operator=(TezColorRamp const&) = default;

    // x clamped to 0 .. 0.99999999, so that x * size stays below the size.
    static double clampNormalized(double x);
};

class TEZ_API TezSmoothColorRamp : public TezColorRamp
{
public:
    static constexpr int NumColors = 4096;

    TezSmoothColorRamp();
    explicit TezSmoothColorRamp(Name name);
    explicit TezSmoothColorRamp(std::vector<float> const& hues);
    TezSmoothColorRamp(std::vector<float> const& hues, float saturation, float value, float brighten);
    explicit TezSmoothColorRamp(std::vector<TezVector3<float>> const& colors);
    TezSmoothColorRamp(std::vector<TezVector3<float>> const& colors, float brighten);

    TezVector3<float> const& normalizedToColor(double x) const override;
    int getNumColors() const override { return NumColors; }
    std::vector<TezVector3<float>> const& GetColors() const { return m_colors; }

protected:
    void initUsingTable(Name name);
    // An empty list gives black; a single colour a flat ramp.
    void initUsingRgb(std::vector<TezVector3<float>> const& colors, float brighten);
    void initUsingHues(std::vector<float> const& hues, float saturation, float value, float brighten);

    std::vector<TezVector3<float>> m_colors;
};

class TEZ_API TezDiscreteColorRamp : public TezColorRamp
{
public:
    // The named smooth ramp sampled at `count` colours.
    TezDiscreteColorRamp(Name name, int count);
    explicit TezDiscreteColorRamp(std::vector<TezVector3<float>> const& colors);
    explicit TezDiscreteColorRamp(std::vector<float> const& hues);
    TezDiscreteColorRamp(std::vector<float> const& hues, float saturation, float value);

    TezVector3<float> const& normalizedToColor(double x) const override;
    int getNumColors() const override { return static_cast<int>(m_colors.size()); }
    std::vector<TezVector3<float>> const& GetColors() const { return m_colors; }

protected:
    void initUsingHues(std::vector<float> const& hues, float saturation, float value);

    mutable std::vector<TezVector3<float>> m_colors;
};
