#pragma once
// Procedural CT-like volume for the compression benchmarks: a body-shaped
// ellipse along z with organs, a spine and a table, low-frequency shading and
// Gaussian-ish noise, in 8 or 16 bits per voxel. Fixed seeds make every run
// see the same bytes.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace tezbench {

struct PhantomShape
{
    int nx = 512, ny = 512, nz = 0;
};

namespace detail {

inline uint64_t SplitMix(uint64_t& s)
{
    uint64_t z = (s += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// Approximately normal (sum of four 16-bit uniforms), mean 0, sd 1.
inline float Gauss(uint64_t& s)
{
    uint64_t r = SplitMix(s);
    float sum = float(r & 0xFFFF) + float((r >> 16) & 0xFFFF) + float((r >> 32) & 0xFFFF) + float(r >> 48);
    return (sum / 65535.0f - 2.0f) * 1.7320508f;
}

inline bool InEllipse(float x, float y, float cx, float cy, float rx, float ry)
{
    float dx = (x - cx) / rx, dy = (y - cy) / ry;
    return dx * dx + dy * dy <= 1.0f;
}

// Hounsfield value of the phantom at voxel (x, y, z) before noise.
inline float Hounsfield(int x, int y, int z, const PhantomShape& s)
{
    float u = (x + 0.5f) / s.nx * 2 - 1, v = (y + 0.5f) / s.ny * 2 - 1;
    float w = s.nz > 1 ? float(z) / (s.nz - 1) : 0.5f;
    if (v > 0.82f && v < 0.86f && std::fabs(u) < 0.9f)
        return 300.0f; // table
    float bodyRx = 0.78f + 0.05f * std::sin(w * 3.1f), bodyRy = 0.62f + 0.03f * std::cos(w * 2.3f);
    if (!InEllipse(u, v, 0, 0.05f, bodyRx, bodyRy))
        return -1000.0f; // air
    if (!InEllipse(u, v, 0, 0.05f, bodyRx - 0.04f, bodyRy - 0.04f))
        return -100.0f; // fat layer
    if (InEllipse(u, v, 0, 0.45f, 0.09f, 0.08f))
        return 700.0f + 300.0f * std::sin(w * 40.0f) * std::sin(w * 40.0f); // vertebrae
    if (InEllipse(u, v, -0.33f, -0.05f, 0.24f, 0.3f) || InEllipse(u, v, 0.33f, -0.05f, 0.24f, 0.3f))
        return -800.0f + 60.0f * std::sin(u * 9.0f + w * 5.0f); // lungs
    if (InEllipse(u, v, 0.05f, -0.15f, 0.14f, 0.12f + 0.04f * w))
        return 140.0f;                                                         // contrast-filled organ
    return 40.0f + 15.0f * std::sin(u * 4.0f) * std::cos(v * 3.0f + w * 2.0f); // soft tissue
}

} // namespace detail

// 8-bit: (HU + 1024) / 16 with noise of 1.5 grey levels; 16-bit: HU + 1024
// with noise of 12 HU. Slices are independent so the fill can run in parallel.
// quietAir leaves the air outside the body exactly 0, as a reconstruction
// with an air threshold would: the sparse structures depend on it.
template <typename Voxel>
void FillPhantomSlice(Voxel* slice, int z, const PhantomShape& s, uint64_t seed, bool quietAir = false)
{
    uint64_t rng = seed ^ (uint64_t(z) * 0xD1B54A32D192ED03ull);
    const bool wide = sizeof(Voxel) == 2;
    const float scale = wide ? 1.0f : 1.0f / 16.0f, sigma = wide ? 12.0f : 1.5f;
    const float top = wide ? 4095.0f : 255.0f;
    for (int y = 0; y < s.ny; ++y)
        for (int x = 0; x < s.nx; ++x) {
            const float hu = detail::Hounsfield(x, y, z, s);
            float v = (hu + 1024.0f) * scale + sigma * detail::Gauss(rng);
            if (quietAir && hu <= -1000.0f)
                v = 0;
            v = v < 0 ? 0 : (v > top ? top : v);
            slice[size_t(y) * s.nx + x] = Voxel(v + 0.5f);
        }
}

// A phantom of about `bytes` bytes (whole 512 x 512 slices).
template <typename Voxel>
std::vector<uint8_t> MakePhantom(size_t bytes, uint64_t seed = 20240611)
{
    PhantomShape s;
    const size_t sliceBytes = size_t(s.nx) * s.ny * sizeof(Voxel);
    s.nz = int(bytes / sliceBytes);
    std::vector<uint8_t> out(sliceBytes * s.nz);
    std::vector<Voxel> slice(size_t(s.nx) * s.ny);
    for (int z = 0; z < s.nz; ++z) {
        FillPhantomSlice(slice.data(), z, s, seed);
        std::memcpy(out.data() + sliceBytes * z, slice.data(), sliceBytes);
    }
    return out;
}

} // namespace tezbench
