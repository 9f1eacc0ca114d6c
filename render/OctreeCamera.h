#pragma once
// The camera of a view as the volume ray-casting kernels take it: the record
// with the view's eye, inverse view axes, focus, near and far, field of view
// (in radians, by the kernels' rounding of pi) and viewport size.

#include "render/CameraView.h"
#include "volume/device/CameraRecord.h"
#include "volume/device/OctreeKernelTypes.h"

TEZ_API TezCameraRecord TezMakeCameraRecord(TezCameraView const& camera);
TEZ_API TezOctreeDevice::Camera TezMakeOctreeCamera(TezCameraView const& camera);
