// The GPU render view's buffers in device memory, and their way into the
// view's two integer textures: each texture is registered with the CUDA
// runtime (write-discard) and filled by a device-to-device copy into its
// mapped array, so no pixel passes through host memory. The only file of the
// library that speaks to CUDA-GL interoperation; compiled by nvcc, and only
// where CUDA is built.
//
// Every runtime call is checked with its tag: a device failure ends the
// process (core/CudaCheck.h). A GL context that is not on a CUDA device
// (Mesa's llvmpipe on a machine with a GPU) cannot take part: the rows are
// then read back and uploaded, as the host backing does, rather than failing.

#include "core/CudaCheck.h"
#include "platform/DeviceMemory.h"
#include "render/views/CudaDevice.h"
#include "render/views/OctreeViewBacking.h"
#include "volume/device/OctreeRender.h"

#include <GL/glew.h>

#include <cuda_gl_interop.h>
#include <cuda_runtime_api.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

char const* const kAllocate = "TezHDTRenderProgramRoutineCUDA::AllocateCUDAArrays.";
char const* const kRender = "TezHDTRenderProgramRoutineCUDA::RenderImage.";

std::string Tag(char const* stem, char letter) { return std::string(stem) + letter; }

class TezCudaOctreeViewBacking final : public TezOctreeViewBacking
{
public:
    TezCudaOctreeViewBacking()
    {
        m_target.onDevice = true;
        checkCudaError(cudaMallocLogged(reinterpret_cast<void**>(&m_target.transform), 64),
                       "TezHDTRenderProgramRoutineCUDA::InitializeImage.A");
    }

    ~TezCudaOctreeViewBacking() override
    {
        Release();
        // Registrations go with the textures' context, if it is gone.
        DetachTextures();
        TezDeviceFree(m_target.transform);
    }

    bool IsOnDevice() const override { return true; }

    void Allocate(int width, int height, int layers) override
    {
        if (width < 1 || height < 1 || layers < 0)
            throw std::runtime_error("TezOctreeViewBacking::Allocate: bad size " + std::to_string(width) + " x " +
                                     std::to_string(height) + " with " + std::to_string(layers) + " layers");
        Release();
        size_t const row = size_t(width) * 4, rows = size_t(height), layerRows = rows * size_t(layers);
        size_t pitch = 0;
        checkCudaError(cudaMallocPitchLogged(reinterpret_cast<void**>(&m_target.depth), &pitch, row, rows),
                       Tag(kAllocate, 'A').c_str());
        m_target.depthPitch = uint32_t(pitch);
        // Only the low byte of the fill counts: "no surface" everywhere.
        checkCudaError(TezDeviceMemset2D(m_target.depth, pitch, 0x1000000, row, rows), Tag(kAllocate, 'B').c_str());
        checkCudaError(cudaMallocPitchLogged(reinterpret_cast<void**>(&m_target.image), &pitch, row, rows),
                       Tag(kAllocate, 'C').c_str());
        m_target.imagePitch = uint32_t(pitch);
        checkCudaError(TezDeviceMemset2D(m_target.image, pitch, 0, row, rows), Tag(kAllocate, 'D').c_str());
        if (layerRows > 0) {
            checkCudaError(cudaMallocPitchLogged(reinterpret_cast<void**>(&m_target.rayLayers), &pitch, row, layerRows),
                           Tag(kAllocate, 'E').c_str());
            m_target.rayLayersPitch = uint32_t(pitch);
            checkCudaError(
                cudaMallocPitchLogged(reinterpret_cast<void**>(&m_target.colourLayers), &pitch, row, layerRows),
                Tag(kAllocate, 'F').c_str());
            m_target.colourLayersPitch = uint32_t(pitch);
        }
        m_target.width = width;
        m_target.height = height;
        m_target.layerCount = layers;
    }

    void Release() override
    {
        void* const buffers[4] = {m_target.image, m_target.depth, m_target.rayLayers, m_target.colourLayers};
        for (void* buffer : buffers)
            if (buffer)
                TezDeviceFree(buffer);
        float* const transform = m_target.transform;
        m_target = TezOctreeRenderTarget();
        m_target.onDevice = true;
        m_target.transform = transform;
    }

    TezOctreeRenderTarget const& GetTarget() const override { return m_target; }

    bool Upload(unsigned imageTexture, unsigned depthTexture) override
    {
        if (!m_target.image || !m_target.depth || !imageTexture || !depthTexture)
            return false;
        if (m_interop < 0)
            m_interop = ContextIsOnDevice() ? 1 : 0;
        if (!m_interop)
            return UploadThroughHost(imageTexture, depthTexture);
        if (imageTexture != m_imageTexture || depthTexture != m_depthTexture) {
            DetachTextures();
            Register(m_imageResource, imageTexture, "TezHDTRenderProgramRoutineCUDA::InitializeImage.B");
            Register(m_depthResource, depthTexture, "TezHDTRenderProgramRoutineCUDA::InitializeImage.C");
            m_imageTexture = imageTexture;
            m_depthTexture = depthTexture;
        }
        Copy(m_imageResource, m_target.image, m_target.imagePitch, 'A');
        Copy(m_depthResource, m_target.depth, m_target.depthPitch, 'E');
        return true;
    }

    void DetachTextures() override
    {
        if (m_imageResource)
            cudaGraphicsUnregisterResource(m_imageResource);
        if (m_depthResource)
            cudaGraphicsUnregisterResource(m_depthResource);
        // A registration whose texture has gone answers an error that would
        // otherwise stay as the last error for the next launch's check.
        cudaGetLastError();
        m_imageResource = m_depthResource = nullptr;
        m_imageTexture = m_depthTexture = 0;
    }

private:
    // True when the current GL context runs on a CUDA device.
    static bool ContextIsOnDevice()
    {
        unsigned count = 0;
        int devices[4] = {0, 0, 0, 0};
        bool const on = cudaGLGetDevices(&count, devices, 4, cudaGLDeviceListAll) == cudaSuccess && count > 0;
        cudaGetLastError(); // the answer "no" must not stay as the last error
        return on;
    }

    bool UploadThroughHost(unsigned imageTexture, unsigned depthTexture)
    {
        size_t const row = size_t(m_target.width) * 4, rows = size_t(m_target.height);
        m_rows.resize(row * rows);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        checkCudaError(TezDeviceMemcpy2D(m_rows.data(), row, m_target.image, m_target.imagePitch, row, rows,
                                         TezDeviceDeviceToHost),
                       Tag(kRender, 'C').c_str());
        glBindTexture(GL_TEXTURE_2D, imageTexture);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, m_target.width, m_target.height, GL_RGBA_INTEGER, GL_UNSIGNED_BYTE,
                        m_rows.data());
        checkCudaError(TezDeviceMemcpy2D(m_rows.data(), row, m_target.depth, m_target.depthPitch, row, rows,
                                         TezDeviceDeviceToHost),
                       Tag(kRender, 'G').c_str());
        glBindTexture(GL_TEXTURE_2D, depthTexture);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, m_target.width, m_target.height, GL_RED_INTEGER, GL_UNSIGNED_INT,
                        m_rows.data());
        glBindTexture(GL_TEXTURE_2D, 0);
        return glGetError() == GL_NO_ERROR;
    }

    static void Register(cudaGraphicsResource*& resource, unsigned texture, char const* tag)
    {
        checkCudaError(
            int(cudaGraphicsGLRegisterImage(&resource, texture, GL_TEXTURE_2D, cudaGraphicsRegisterFlagsWriteDiscard)),
            tag);
    }

    // Map, find the array, copy the buffer's rows in, unmap: four tags from
    // `first`.
    void Copy(cudaGraphicsResource* resource, void const* buffer, size_t pitch, char first)
    {
        checkCudaError(int(cudaGraphicsMapResources(1, &resource, 0)), Tag(kRender, first).c_str());
        cudaArray_t array = nullptr;
        checkCudaError(int(cudaGraphicsSubResourceGetMappedArray(&array, resource, 0, 0)),
                       Tag(kRender, char(first + 1)).c_str());
        checkCudaError(int(cudaMemcpy2DToArray(array, 0, 0, buffer, pitch, size_t(m_target.width) * 4,
                                               size_t(m_target.height), cudaMemcpyDeviceToDevice)),
                       Tag(kRender, char(first + 2)).c_str());
        checkCudaError(int(cudaGraphicsUnmapResources(1, &resource, 0)), Tag(kRender, char(first + 3)).c_str());
    }

    TezOctreeRenderTarget m_target;
    cudaGraphicsResource* m_imageResource = nullptr;
    cudaGraphicsResource* m_depthResource = nullptr;
    unsigned m_imageTexture = 0;
    unsigned m_depthTexture = 0;
    // Whether the textures can be registered: -1 until the first upload.
    int m_interop = -1;
    std::vector<unsigned char> m_rows;
};

} // namespace

std::unique_ptr<TezOctreeViewBacking> TezCreateCudaOctreeViewBacking()
{
    if (!TezOctreeKernelsHaveDevice())
        return nullptr;
    return std::unique_ptr<TezOctreeViewBacking>(new TezCudaOctreeViewBacking());
}
