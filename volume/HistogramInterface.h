#pragma once
// TezHistogramInterface: what a host's histogram and transfer-function
// editor offers the kernel. The kernel defines no implementation; a host
// derives from it and keeps it through TezRef.
//
// The histogram is 256 fractions of the voxel count; control points are
// (value, opacity) pairs with values ascending from 0 to 1, as
// TezVolumeCreateTransferFunction takes them.

#include "core/RefCounter.h"
#include "math/Vector.h"
#include "volume/ColorRamp.h"

#include <vector>

class TEZ_API TezHistogramInterface : public TezRefCounter
{
public:
    ~TezHistogramInterface() override;

    virtual void SetHistogram(std::vector<float> const& fractions) = 0;
    virtual std::vector<float> const& GetHistogram() const = 0;
    virtual int GetBinCount() const = 0;

    virtual void SetTransferFunction(std::vector<TezVector2<float>> const& points) = 0;
    virtual std::vector<TezVector2<float>> const& GetTransferFunction() const = 0;
    // The index the point got, or -1 when it was not accepted.
    virtual int AddControlPoint(TezVector2<float> const& point) = 0;
    virtual bool RemoveControlPoint(int index) = 0;
    virtual bool MoveControlPoint(int index, TezVector2<float> const& point) = 0;
    virtual int GetSelectedPoint() const = 0;
    virtual void SetSelectedPoint(int index) = 0;

    virtual void SetColorRamp(TezColorRamp::Name name) = 0;
    virtual TezColorRamp::Name GetColorRamp() const = 0;
    virtual void SetValueRange(float low, float high) = 0;
    virtual void GetValueRange(float& low, float& high) const = 0;
    virtual void SetLogScale(bool logScale) = 0;
    virtual bool GetLogScale() const = 0;
    // Redraws the editor after a change made through the interface.
    virtual void Update() = 0;

protected:
    TezHistogramInterface();
    TezHistogramInterface(TezHistogramInterface const& other);
    TezHistogramInterface& operator=(TezHistogramInterface const& other);
};
