// Device launches of a library built without nvcc: every one reports that the
// kernels are absent. Nothing calls them while TezOctreeKernelsHaveDevice()
// is false; they keep the launch table whole.

#include "volume/device/OctreeLaunch.h"

namespace TezOctreeDevice {
namespace {

bool Absent(const char** error)
{
    if (error)
        *error = "the library was built without its device kernels";
    return false;
}

} // namespace

bool CudaDeviceAvailable() { return false; }
int LastCudaStatus() { return 0; }
bool RunSolidCuda(const SolidLaunch&, bool, const XSectionRangeFunction*, const char** error) { return Absent(error); }
bool RunTransparentCuda(const TransparentLaunch&, bool, const XSectionRangeFunction*, const char** error)
{
    return Absent(error);
}
bool RunBlendCuda(const BlendLaunch&, const char** error) { return Absent(error); }
bool RunNodeStatesCuda(const Octree&, int, const float*, bool, const char** error) { return Absent(error); }
bool RunNodeStatesAdjacentCuda(const Octree&, const char** error) { return Absent(error); }
bool CudaMallocPitch(void**, size_t*, size_t, size_t, const char** error) { return Absent(error); }
bool CudaFree(void*, const char** error) { return Absent(error); }
bool CudaMemset2D(void*, size_t, int, size_t, size_t, const char** error) { return Absent(error); }
bool CudaCopy(void*, const void*, size_t, bool, const char** error) { return Absent(error); }
bool CudaCopy2DToHost(void*, size_t, const void*, size_t, size_t, size_t, const char** error) { return Absent(error); }

} // namespace TezOctreeDevice
