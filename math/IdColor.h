#pragma once
// Object ids as picking colours: the id's bytes, low first, are the red,
// green, blue and alpha channels, each byte / 255. Reading a picked pixel
// back takes the 24 bits of red, green and blue.

#include "math/Vector.h"
#include "platform/Api.h"

#include <cstdint>

TEZ_API TezVector4<float> TezIdToColor(uint32_t id);
TEZ_API uint32_t TezIdFromColor(TezVector4<unsigned char> const& color);
