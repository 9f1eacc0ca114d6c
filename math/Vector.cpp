#include "math/Vector.h"

template class TezVector2<int>;
template class TezVector2<float>;
template class TezVector2<double>;
template class TezVector3<int>;
template class TezVector3<float>;
template class TezVector3<double>;
template class TezVector4<int>;
template class TezVector4<float>;
template class TezVector4<double>;
template class TezVector4<unsigned char>;
