#pragma once
// The unit axes; the scalar constants (pi, the tolerance, "infinity") are
// core/Constants.h's.

#include "core/Constants.h"
#include "math/Vector.h"
#include "platform/Api.h"

extern TEZ_API const TezVector3<float> TezXAxisf;
extern TEZ_API const TezVector3<float> TezYAxisf;
extern TEZ_API const TezVector3<float> TezZAxisf;
extern TEZ_API const TezVector3<double> TezXAxisd;
extern TEZ_API const TezVector3<double> TezYAxisd;
extern TEZ_API const TezVector3<double> TezZAxisd;
