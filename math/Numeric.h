#pragma once
// Numeric limits shared by the value types.
//
// "Infinity" in this library is the finite number 1e30 and the length
// tolerance is 1e-6 for every element type; integer types cannot hold 1e30 and
// saturate to their largest value instead.

#include "core/Constants.h"

#include <limits>
#include <type_traits>

namespace tez_detail {

constexpr double kInfinity = TezInfinity;
constexpr double kEpsilon = TezEpsilon;

template <class T>
constexpr T Infinity()
{
    if constexpr (std::is_floating_point_v<T>)
        return static_cast<T>(kInfinity);
    else
        return std::numeric_limits<T>::max();
}

// |a - b| < 1e-6, evaluated in double so that unsigned types do not wrap.
template <class T>
constexpr bool Near(T a, T b)
{
    const double d = static_cast<double>(a) - static_cast<double>(b);
    return (d < 0 ? -d : d) < kEpsilon;
}

} // namespace tez_detail
