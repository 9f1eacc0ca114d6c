#include "tez/SampleStack.h"

#include "core/Progress.h"
#include "platform/System.h"
#include "volume/Image.h"

#include <tbb/parallel_for.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace {
bool Inside(float x, float y, float z, float cx, float cy, float cz, float rx, float ry, float rz)
{
    float const dx = (x - cx) / rx, dy = (y - cy) / ry, dz = (z - cz) / rz;
    return dx * dx + dy * dy + dz * dz <= 1.0f;
}

// Grey value at a point of the unit cube (coordinates -1..1).
float Density(float x, float y, float z)
{
    if (y > 0.78f && y < 0.84f && std::fabs(x) < 0.9f && std::fabs(z) < 0.95f)
        return 120.0f; // table
    if (!Inside(x, y, z, 0.0f, 0.05f, 0.0f, 0.78f, 0.6f, 0.9f))
        return 0.0f; // air
    if (!Inside(x, y, z, 0.0f, 0.05f, 0.0f, 0.72f, 0.54f, 0.86f))
        return 215.0f; // bony shell
    if (Inside(x, y, 0.0f, 0.0f, 0.4f, 0.0f, 0.1f, 0.09f, 1.0f))
        return 200.0f + 30.0f * std::sin(z * 25.0f); // spine
    if (Inside(x, y, z, -0.33f, -0.05f, 0.1f, 0.22f, 0.3f, 0.6f) ||
        Inside(x, y, z, 0.33f, -0.05f, 0.1f, 0.22f, 0.3f, 0.6f))
        return 25.0f; // lungs
    if (Inside(x, y, z, 0.05f, -0.15f, -0.45f, 0.16f, 0.14f, 0.2f))
        return 165.0f;                                                         // contrast-filled organ
    return 95.0f + 12.0f * std::sin(x * 4.0f) * std::cos(y * 3.0f + z * 2.0f); // soft tissue
}

uint32_t Hash(uint32_t v)
{
    v ^= v >> 16;
    v *= 0x7FEB352Du;
    v ^= v >> 15;
    v *= 0x846CA68Bu;
    return v ^ (v >> 16);
}
} // namespace

std::string TezWriteSampleStack(std::string const& folder, int size)
{
    if (size < 2 || size > 2048) {
        std::fprintf(stderr, "tez: the sample size must be 2 to 2048\n");
        return std::string();
    }
    TezCreateDir(folder.c_str()); // answers false whatever happened
    if (!TezIsDirectory(folder.c_str())) {
        std::fprintf(stderr, "tez: cannot create folder %s\n", folder.c_str());
        return std::string();
    }
    std::string const pattern = folder + "/slice%04d.png";
    std::atomic<bool> failed{false};
    TezProgress progress("slices", uint64_t(size));
    tbb::parallel_for(0, size, [&](int k) {
        if (progress.StopRequested())
            return;
        std::vector<uint8_t> pixels(size_t(size) * size_t(size));
        float const scale = 2.0f / float(size);
        float const z = (float(k) + 0.5f) * scale - 1.0f;
        for (int j = 0; j < size; ++j)
            for (int i = 0; i < size; ++i) {
                float v = Density((float(i) + 0.5f) * scale - 1.0f, (float(j) + 0.5f) * scale - 1.0f, z);
                if (v > 0.0f) {
                    uint32_t const h = Hash(uint32_t((k * size + j) * size + i));
                    v += float(int(h % 9u) - 4);
                }
                pixels[size_t(j) * size_t(size) + size_t(i)] =
                    uint8_t(std::lround(std::fmin(std::fmax(v, 0.0f), 255.0f)));
            }
        TezImage image;
        std::vector<char> name(pattern.size() + 16);
        std::snprintf(name.data(), name.size(), pattern.c_str(), k);
        if (!image.CreateFromPixels(pixels.data(), size, size, 1, size_t(size), false) || !image.Save(name.data()))
            failed = true;
        progress.Step();
    });
    progress.End();
    if (failed) {
        std::fprintf(stderr, "tez: cannot write the sample slices into %s\n", folder.c_str());
        return std::string();
    }
    return pattern;
}
