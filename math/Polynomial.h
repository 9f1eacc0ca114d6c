#pragma once
// Closed-form roots of monic cubics and quartics. Each root is a
// TezVector2<double>: real part, then imaginary part.

#include "math/Vector.h"
#include "platform/Api.h"

// Real cube root that keeps the sign.
TEZ_API double TezCubeRoot(double x);

// x^3 + c[0] x^2 + c[1] x + c[2] = 0 by Cardano's formulas; three roots.
// For three real roots with a vanishing r term the third root is given as the
// negative of the second (kept as callers expect it). False only if the
// discriminant is not a number.
TEZ_API bool TezSolveCubic(double* const coefficients, TezVector2<double>* const roots);

// x^4 + c[0] x^3 + c[1] x^2 + c[2] x + c[3] = 0 by Ferrari's resolvent, the
// roots polished by Newton steps in complex arithmetic; four roots. False if
// a coefficient is not finite.
TEZ_API bool TezSolveQuartic(double* const coefficients, TezVector2<double>* const roots);
