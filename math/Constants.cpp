#include "math/Constants.h"

const TezVector3<float> TezXAxisf(1.0f, 0.0f, 0.0f);
const TezVector3<float> TezYAxisf(0.0f, 1.0f, 0.0f);
const TezVector3<float> TezZAxisf(0.0f, 0.0f, 1.0f);
const TezVector3<double> TezXAxisd(1.0, 0.0, 0.0);
const TezVector3<double> TezYAxisd(0.0, 1.0, 0.0);
const TezVector3<double> TezZAxisd(0.0, 0.0, 1.0);
