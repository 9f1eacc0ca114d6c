#pragma once
// TezCudaRenderView: the render view of the voxel data. One frame mixes GL
// (meshes, overlays, text) with the octree ray caster, which writes into
// buffers this view owns; PostToOpenGL turns image and depth into two
// integer textures (GL_RGBA8UI, GL_R32UI) and merges them into the frame
// with a full-screen quad that writes gl_FragDepth, so cast voxels and GL
// geometry hide each other by depth.
//
// Depth words are 24-bit fixed point (d / 2^24 is the window depth over the
// depth range, TezOctreeDepthWord); 0 and 0xFFFFFFFF mean no surface and
// leave the GL frame untouched.
//
// Order of a frame (Paint): BeginPaint (false: return at once); with a
// scene, clear the layer stacks; plain pass (solid octree objects cast and
// post at once, transparent ones cast into the layers); transparent pass
// (blended, depth test off); CudaPostRender (where layers were cast: depth
// cleared to "no surface", layers blended into image and depth, posted);
// depth cleared; overlay pass; EndPaint. The buffers live in a backing
// (TezOctreeViewBacking): device memory copied into the textures through
// CUDA-GL interoperation where the kernels run on a GPU, otherwise host
// arrays filled by the kernels' host loops and uploaded.
//
// Made by TezRenderViewManager::CreateCuda / CreateOffScreenCuda. Initialize
// and Resize bind the view's context for the GL work and unbind it after;
// PostToOpenGL needs it current (it is, inside Paint).

#include "core/Preferences.h"
#include "render/views/OctreeViewBacking.h"
#include "render/views/RenderView.h"

#include <cstdint>
#include <memory>

TEZ_DECLARE_REF_FUNCTIONS(TezCudaRenderView)

class TEZ_API TezCudaRenderView : public TezRenderView
{
public:
    enum SobelFilterSize { SobelOff = 0, Sobel3x3 = 1, Sobel5x5 = 2, Sobel7x7 = 3, Sobel9x9 = 4 };
    enum SobelFilterType { SobelTaxicab = 0, SobelInverseR = 1, SobelInverseR2 = 2 };

    ~TezCudaRenderView() override;

    bool Initialize(HWND window, unsigned width, unsigned height) override;
    bool Resize(unsigned width, unsigned height) override;
    bool Paint() override;
    // The passes with the merge, no clear and no swap (ExportImage uses it).
    bool PaintLo() override;

    // The buffers the kernels write, at the camera's size (null before
    // Initialize). Pointers are host or device memory as IsOnDevice says.
    const TezOctreeRenderTarget& GetRenderTarget() const { return m_backing->GetTarget(); }
    bool IsOnDevice() const { return m_backing->IsOnDevice(); }
    uint32_t* GetCudaDepthBuffer() const { return GetRenderTarget().depth; }
    uint32_t GetCudaDepthPitch() const { return GetRenderTarget().depthPitch; }
    uint8_t* GetCudaImageBuffer() const { return GetRenderTarget().image; }
    uint32_t GetCudaImagePitch() const { return GetRenderTarget().imagePitch; }
    uint8_t* GetCudaColorAccumBuffers() const { return GetRenderTarget().colourLayers; }
    uint32_t GetCudaColorAccumPitch() const { return GetRenderTarget().colourLayersPitch; }
    float* GetCudaRayTAccumBuffers() const { return GetRenderTarget().rayLayers; }
    uint32_t GetCudaRayTAccumPitch() const { return GetRenderTarget().rayLayersPitch; }
    float* GetCudaTransformBuffer() const { return GetRenderTarget().transform; }
    unsigned GetImageTexture() const { return m_imageTexture; }
    unsigned GetDepthTexture() const { return m_depthTexture; }

    uint64_t GetNumAccumHits() const { return m_numAccumHits; }
    // Drops the buffers, stores, allocates again (textures are kept).
    void SetNumAccumHits(uint64_t hits);

    bool GetRaysPerPixelSmoothing() const { return m_raysPerPixelSmoothing; }
    void SetRaysPerPixelSmoothing(bool on) { m_raysPerPixelSmoothing = on; }
    bool GetVoxelsPerStepSmoothing() const { return m_voxelsPerStepSmoothing; }
    void SetVoxelsPerStepSmoothing(bool on) { m_voxelsPerStepSmoothing = on; }
    float GetRaysPerPixelEffectStrength() const { return m_raysPerPixelEffectStrength; }
    void SetRaysPerPixelEffectStrength(float strength) { m_raysPerPixelEffectStrength = strength; }

    // The edge-filter options, registered as preferences; the kernels take
    // them as plain integers (the half size of the window, the weighting).
    SobelFilterSize GetSobelFilterSize() const;
    void SetSobelFilterSize(SobelFilterSize size);
    SobelFilterType GetSobelFilterType() const;
    void SetSobelFilterType(SobelFilterType type);
    int GetSobelKernelHalfSizeInt() const { return static_cast<int>(GetSobelFilterSize()); }
    int GetSobelTypeInt() const { return static_cast<int>(GetSobelFilterType()); }

    // Said by an object that cast into the layer stacks this frame. Frames
    // without one skip the blend and the second post, which would change no
    // pixel (every depth word would read "no surface"), and the next frame
    // skips clearing layers that are still clear.
    void MarkLayersCast() { m_layersCast = m_layersDirty = true; }

    // Every depth word to "no surface" (0xFF bytes).
    bool CUDAClearDepthBuffer();
    // Image and depth into the textures, then the depth-writing quad. Needs
    // the context current; true.
    bool PostToOpenGL();

private:
    friend class TezRenderViewManager;
    explicit TezCudaRenderView(std::unique_ptr<TezOctreeViewBacking> backing);

    bool CudaInitialize();
    bool CudaInitializeImage();
    bool CudaResize();
    bool CudaResizeImage();
    void MakeTextures();
    void DeleteTextures();
    bool AllocateCUDAArrays();
    void DeallocateCUDAArrays();
    void CompileGLSLprogram();
    bool CudaPreRender();
    bool CudaPostRender();

    std::unique_ptr<TezOctreeViewBacking> m_backing;
    unsigned m_depthTexture = 0;
    unsigned m_imageTexture = 0;
    uint64_t m_numAccumHits = 2;
    unsigned m_program = 0;
    unsigned m_vertexBuffer = 0;
    unsigned m_vertexArray = 0;
    TezRef<TezPrefOptionEnum> m_sobelFilterType;
    TezRef<TezPrefOptionEnum> m_sobelFilterSize;
    bool m_raysPerPixelSmoothing = false;
    bool m_voxelsPerStepSmoothing = false;
    float m_raysPerPixelEffectStrength = 100.0f;
    bool m_layersCast = false;
    // New layer buffers hold whatever the allocation left.
    bool m_layersDirty = true;
};
