#pragma once
// Test buffers: a small smooth volume with noise (compresses like CT data)
// and plain random bytes (does not compress). Fixed seeds.

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace tezcompresstest {

inline std::vector<uint8_t> SmoothNoisy(size_t size, uint32_t seed = 7)
{
    std::mt19937 rng(seed);
    std::normal_distribution<float> noise(0.0f, 2.0f);
    std::vector<uint8_t> v(size);
    for (size_t i = 0; i < size; ++i) {
        const size_t x = i % 64, y = (i / 64) % 64, z = i / 4096;
        const float r = std::sqrt(float((x - 32) * (x - 32) + (y - 32) * (y - 32)));
        float value = r < 24 ? 90.0f + 20.0f * std::sin(0.1f * float(z) + 0.2f * float(x)) : 3.0f;
        value += noise(rng);
        v[i] = uint8_t(std::min(255.0f, std::max(0.0f, value)));
    }
    return v;
}

inline std::vector<uint8_t> Random(size_t size, uint32_t seed = 11)
{
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(size);
    for (auto& b : v)
        b = uint8_t(rng());
    return v;
}

} // namespace tezcompresstest
