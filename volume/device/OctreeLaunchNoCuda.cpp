// The device launches of a library built without nvcc: there are none, and
// nothing asks for them while TezOctreeKernelsHaveDevice() is false.

#include "volume/device/OctreeLaunch.h"

namespace TezOctreeDevice {

const LaunchBackend CudaLaunches{nullptr, nullptr, nullptr, nullptr, nullptr};

bool CudaKernelsBuilt() { return false; }

} // namespace TezOctreeDevice
