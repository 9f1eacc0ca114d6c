#include "volume/TransferFunction.h"

#include <stdexcept>
#include <string>

namespace {

template <class Store>
void Sample(std::vector<TezVector2<float>> const& points, int size, Store&& store)
{
    if (points.size() < 2)
        throw std::runtime_error("TezVolumeCreateTransferFunction: " + std::to_string(points.size()) +
                                 " control points; at least two are needed");
    double const step = size > 1 ? 1.0 / (size - 1) : 0.0;
    size_t const last = points.size() - 1;
    size_t k = 1;
    for (int i = 0; i < size; ++i) {
        double const x = i * step;
        if (x > points[k].x && k < last)
            ++k;
        TezVector2<float> const& a = points[k - 1];
        TezVector2<float> const& b = points[k];
        store(i, a.y + (b.y - a.y) * (x - a.x) / (b.x - a.x));
    }
}

} // namespace

std::vector<float> TezVolumeCreateTransferFunction(std::vector<TezVector2<float>> const& points, int size)
{
    std::vector<float> table(static_cast<size_t>(size > 0 ? size : 0));
    Sample(points, size, [&](int i, double y) { table[static_cast<size_t>(i)] = static_cast<float>(y); });
    return table;
}

void TezVolumeCreateTransferFunction(std::vector<TezVector2<float>> const& points, uint8_t* destination, int size)
{
    Sample(points, size, [&](int i, double y) {
        double const value = y * 255.0;
        // Curves outside 0 .. 1 (and NaN from coincident points) stay in range.
        destination[i] = value >= 255.0 ? 255 : value > 0.0 ? static_cast<uint8_t>(value) : 0;
    });
}
