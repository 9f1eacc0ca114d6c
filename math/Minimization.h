#pragma once
// Derivative-free minimisation of a function of two variables over a box.

#include "platform/Api.h"

#include <functional>

// Samples f on an nx-by-ny grid over [x0, x1] x [y0, y1], then repeatedly
// shrinks the window to the two cells around the best sample and samples it
// again, until the cells are smaller than 1e-6 of the first window or
// `levels` refinements have run. The best sample found is returned in
// bestX, bestY, bestValue. Finds the global minimum when it lies in a basin
// wider than a grid cell. Throws std::runtime_error for nx or ny below 2.
TEZ_API void TezGrid2DMinimization(int nx, int ny, float x0, float x1, float y0, float y1,
                                   std::function<float(float, float)> f, float& bestX, float& bestY, float& bestValue,
                                   int levels = 12);
