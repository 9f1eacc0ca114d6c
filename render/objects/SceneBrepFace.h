#pragma once
// TezSceneBrepFace: one face of a B-rep, drawn by "Effect Brep Face". The
// face's whole surface is drawn as a grid (TezBrepFace::MakeSurfaceGrid),
// and the fragments outside its trim loops are discarded by the trim
// texture: a square R8 texture over the face's normalised parameters,
// white inside the trimmed region. Pass 0 renders the trimmed region (the
// face's own triangulation, drawn at its parameters) into that texture,
// once after each build; pass 1 draws the grid with the texture on unit 0.
//
// Bounds are those of the trimmed face. A face whose loops cannot be
// rebuilt draws nothing and logs a warning. BuildObject, DrawObject and
// UnbuildObject need the context current; the texture's pass keeps the
// caller's frame buffer, viewport and depth test as it found them.

#include "render/gl/Primitives.h"
#include "render/scene/SceneObject.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneBrepFace)
TEZ_DECLARE_REF_FUNCTIONS(TezBrepFace)
TEZ_DECLARE_REF_FUNCTIONS(TezTexture)
TEZ_DECLARE_REF_FUNCTIONS(TezFrameBuffer)

class TEZ_API TezSceneBrepFace : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneBrepFace)
public:
    static constexpr int TrimTextureSize = 512;

    static TezRef<TezSceneBrepFace> Create(TezRef<TezBrepFace> face);
    ~TezSceneBrepFace() override;

    void SetFace(TezRef<TezBrepFace> face);
    TezRef<TezBrepFace> GetFace() const;

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneBrepFace();

private:
    bool RenderTrimTexture();

    TezRef<TezBrepFace> m_face;
    TezBox3<float> m_bounds;
    bool m_boundsValid = false;
    TezGLPrimitives m_grid;
    TezGLPrimitives m_trimmed;
    TezRef<TezTexture> m_trimTexture;
    TezRef<TezFrameBuffer> m_trimFrame;
    bool m_trimRendered = false;
};
