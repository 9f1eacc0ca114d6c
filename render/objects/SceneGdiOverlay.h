#pragma once
// TezSceneGdiOverlay: a picture laid over the view at a fixed place and size
// in pixels, whatever the camera does: legends, logos, a host's own drawing.
// The host fills a TezRgbaBitmap; its alpha, times the opacity, blends the
// picture over the frame. Drawn by the "Gdi Overlay Effect", which draws on
// top, with the depth test off. Position is the picture's top-left corner,
// x from the view's left edge and y down from its top edge; a size of 0 x 0
// (the start) shows the bitmap at its own size. Not mappable, no bounds.
// SetBitmap marks the object for a rebuild; a bitmap that reports a change
// (TezRgbaBitmap::Changed) is loaded again at the next draw. Drawing needs
// the context current.

#include "render/gl/Primitives.h"
#include "render/gl/Texture.h"
#include "render/objects/RgbaBitmap.h"
#include "render/scene/SceneObject.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneGdiOverlay)

class TEZ_API TezSceneGdiOverlay : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneGdiOverlay)
public:
    static TezRef<TezSceneGdiOverlay> Create(TezRef<TezRgbaBitmap> bitmap = nullptr);
    ~TezSceneGdiOverlay() override;

    void SetBitmap(TezRef<TezRgbaBitmap> bitmap);
    TezRef<TezRgbaBitmap> GetBitmap() const { return m_bitmap; }
    // 0 (invisible) to 1 (the bitmap's own alpha); 1 to start.
    void SetOpacity(float opacity) { m_opacity = opacity; }
    float GetOpacity() const { return m_opacity; }
    void SetPosition(TezVector2<int> const& topLeft) { m_position = topLeft; }
    TezVector2<int> GetPosition() const { return m_position; }
    void SetSize(TezVector2<int> const& size) { m_size = size; }
    TezVector2<int> GetSize() const { return m_size; }

    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneGdiOverlay();

private:
    void LoadTexture();

    TezRef<TezRgbaBitmap> m_bitmap;
    float m_opacity = 1.0f;
    TezVector2<int> m_position{0, 0};
    TezVector2<int> m_size{0, 0};
    TezRef<TezTexture> m_texture;
    uint64_t m_loadedVersion = 0;
    TezGLPrimitives m_quad;
};
