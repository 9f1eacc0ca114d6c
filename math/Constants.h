#pragma once
// Numeric constants exported by the library. Infinity is the finite 1e30 and
// the tolerance 1e-6 for float and double alike.

#include "platform/Api.h"
#include "math/Vector.h"

extern TEZ_API const double TezPi;
extern TEZ_API const float TezPif;
extern TEZ_API const double TezEpsilon;
extern TEZ_API const float TezEpsilonf;
extern TEZ_API const double TezInfinity;
extern TEZ_API const float TezInfinityf;
extern TEZ_API const double TezGolden;
extern TEZ_API const float TezGoldenf;

extern TEZ_API const TezVector3<float> TezXAxisf;
extern TEZ_API const TezVector3<float> TezYAxisf;
extern TEZ_API const TezVector3<float> TezZAxisf;
extern TEZ_API const TezVector3<double> TezXAxisd;
extern TEZ_API const TezVector3<double> TezYAxisd;
extern TEZ_API const TezVector3<double> TezZAxisd;
