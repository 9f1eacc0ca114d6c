#pragma once
// TezCameraRecord: the camera as the volume ray-casting kernels take it.
//
// Its fields follow the kernels' camera record one for one: eye, the three
// inverse view axes (rows of the matrix taking view coordinates to world
// directions), focus, near, far, the vertical field of view in radians and
// the viewport size. A camera view makes one with TezMakeCameraRecord
// (render/OctreeCamera.h). GetPixelRay gives the kernels' world-space ray of a
// pixel, before any object transform; its pixel y counts up from the bottom
// row, so GetPixelRay(x, y) matches the camera's RayToPixel(x, height - 1 - y).

#include "math/Ray.h"
#include "math/Vector.h"
#include "platform/Api.h"

#include <cstdint>

struct TEZ_API TezCameraRecord
{
    uint8_t perspective = 0;
    TezVector3<float> eye{0, 0, 0};
    TezVector3<float> axisX{1, 0, 0};
    TezVector3<float> axisY{0, 1, 0};
    TezVector3<float> axisZ{0, 0, 1};
    TezVector3<float> focus{0, 0, 0};
    float near = 0.0f;
    float far = 0.0f;
    float fov = 0.0f; // radians
    int32_t width = 0;
    int32_t height = 0;

    // Ray through the centre of pixel (x, y), y counting up. Perspective rays
    // start at the eye; orthographic ones on the plane through the eye. The
    // direction is unit length.
    TezRay GetPixelRay(int x, int y) const;
};
