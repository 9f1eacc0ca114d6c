#pragma once
// TezOctreeViewBacking: where the GPU render view's ray-cast buffers live and
// how they reach its two integer GL textures.
//
// A backing owns one TezOctreeRenderTarget (image, depth words, layer stacks
// and the 64-byte transform) at the view's size, and copies image and depth
// into the view's GL_RGBA8UI and GL_R32UI textures of the same size. The host
// backing keeps host arrays, filled by the kernels' host loops, and uploads
// them with glTexSubImage2D; a device backing keeps device memory and copies
// on the device through CUDA-GL interoperation (the textures registered with
// the runtime on first use). Upload and DetachTextures need the view's GL
// context current; nothing else touches GL. Allocate throws
// std::runtime_error on sizes below 1.

#include "platform/Api.h"
#include "volume/device/OctreeRender.h"

#include <cstdint>
#include <memory>

class TEZ_API TezOctreeViewBacking
{
public:
    virtual ~TezOctreeViewBacking() = default;

    // True where the buffers are device memory.
    virtual bool IsOnDevice() const = 0;
    // Buffers for width x height pixels and `layers` transparency layers; the
    // depth starts as "no surface" (0x00 fill) and the image as 0. Drops the
    // old buffers first.
    virtual void Allocate(int width, int height, int layers) = 0;
    virtual void Release() = 0;
    // Null buffers before Allocate.
    virtual const TezOctreeRenderTarget& GetTarget() const = 0;
    // Image and depth into the textures (GL names, each of the target's size).
    virtual bool Upload(unsigned imageTexture, unsigned depthTexture) = 0;
    // Said before the view deletes the textures last uploaded to.
    virtual void DetachTextures() {}
};

// The backing on host arrays; available everywhere.
TEZ_API std::unique_ptr<TezOctreeViewBacking> TezCreateHostOctreeViewBacking();
// The backing on device memory; null where the library was built without
// CUDA or no device is in use (TezOctreeKernelsHaveDevice).
TEZ_API std::unique_ptr<TezOctreeViewBacking> TezCreateCudaOctreeViewBacking();
// The device backing where it can be had, the host backing otherwise.
TEZ_API std::unique_ptr<TezOctreeViewBacking> TezCreateOctreeViewBacking();
