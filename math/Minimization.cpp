#include "math/Minimization.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

void TezGrid2DMinimization(int nx, int ny, float x0, float x1, float y0, float y1, std::function<float(float, float)> f,
                           float& bestX, float& bestY, float& bestValue, int levels)
{
    if (nx < 2 || ny < 2)
        throw std::runtime_error("TezGrid2DMinimization: grid needs at least 2x2 samples, got " + std::to_string(nx) +
                                 "x" + std::to_string(ny));
    if (!f)
        throw std::runtime_error("TezGrid2DMinimization: no function given");
    const float spanX = std::abs(x1 - x0), spanY = std::abs(y1 - y0);
    bestValue = f(x0, y0);
    bestX = x0;
    bestY = y0;
    for (int level = 0; level <= levels; ++level) {
        const float dx = (x1 - x0) / (nx - 1), dy = (y1 - y0) / (ny - 1);
        for (int j = 0; j < ny; ++j) {
            for (int i = 0; i < nx; ++i) {
                const float x = x0 + dx * i, y = y0 + dy * j;
                const float v = f(x, y);
                if (v < bestValue) {
                    bestValue = v;
                    bestX = x;
                    bestY = y;
                }
            }
        }
        if (std::abs(dx) <= 1e-6f * spanX && std::abs(dy) <= 1e-6f * spanY)
            break;
        // The next window spans one cell either side of the best sample.
        x0 = bestX - dx;
        x1 = bestX + dx;
        y0 = bestY - dy;
        y1 = bestY + dy;
    }
}
