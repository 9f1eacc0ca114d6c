#pragma once
// The library's numeric constants, one definition each. "Infinity" is the
// finite 1e30 and the tolerance 1e-6, for float and double alike; the float
// pi is the rounding the kernels and the camera were written against.

inline constexpr double TezPi = 3.141592653589793;
inline constexpr float TezPif = 3.1415927f;
inline constexpr double TezEpsilon = 1e-6;
inline constexpr float TezEpsilonf = 1e-6f;
inline constexpr double TezInfinity = 1e30;
inline constexpr float TezInfinityf = 1e30f;
inline constexpr double TezGolden = 1.618033988749895;
inline constexpr float TezGoldenf = 1.618033988749895f;
