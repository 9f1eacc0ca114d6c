#include "render/OctreeCamera.h"

#include "volume/device/OctreeRender.h"

TezCameraRecord TezMakeCameraRecord(TezCameraView const& camera)
{
    TezCameraRecord record;
    record.perspective = camera.UsingPerspective() ? 1 : 0;
    record.eye = camera.GetEye();
    camera.GetInverseViewAxes(record.axisX, record.axisY, record.axisZ);
    record.focus = camera.GetFocus();
    record.near = camera.GetNear();
    record.far = camera.GetFar();
    record.fov = camera.GetFov() * TezPif / 180.0f;
    record.width = camera.GetWidth();
    record.height = camera.GetHeight();
    return record;
}

TezOctreeDevice::Camera TezMakeOctreeCamera(TezCameraView const& camera)
{
    return TezMakeOctreeCamera(TezMakeCameraRecord(camera));
}
