#include "math/Constants.h"

const double TezPi = 3.141592653589793;
const float TezPif = 3.1415927f;
const double TezEpsilon = tez_detail::kEpsilon;
const float TezEpsilonf = 1e-6f;
const double TezInfinity = tez_detail::kInfinity;
const float TezInfinityf = 1e30f;
const double TezGolden = 1.618033988749895;
const float TezGoldenf = 1.618033988749895f;

const TezVector3<float> TezXAxisf(1.0f, 0.0f, 0.0f);
const TezVector3<float> TezYAxisf(0.0f, 1.0f, 0.0f);
const TezVector3<float> TezZAxisf(0.0f, 0.0f, 1.0f);
const TezVector3<double> TezXAxisd(1.0, 0.0, 0.0);
const TezVector3<double> TezYAxisd(0.0, 1.0, 0.0);
const TezVector3<double> TezZAxisd(0.0, 0.0, 1.0);
