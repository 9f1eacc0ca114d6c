#include "math/IdColor.h"

TezVector4<float> TezIdToColor(uint32_t id)
{
    return TezVector4<float>(static_cast<float>(id & 0xFF) / 255.0f, static_cast<float>((id >> 8) & 0xFF) / 255.0f,
                             static_cast<float>((id >> 16) & 0xFF) / 255.0f,
                             static_cast<float>((id >> 24) & 0xFF) / 255.0f);
}

uint32_t TezIdFromColor(TezVector4<unsigned char> const& color)
{
    return static_cast<uint32_t>(color.x) | (static_cast<uint32_t>(color.y) << 8) |
           (static_cast<uint32_t>(color.z) << 16);
}
