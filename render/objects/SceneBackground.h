#pragma once
// TezSceneBackground, "Background Image": the view's backdrop, a vertical
// colour gradient over the whole view, drawn first (by the background
// effect) without touching depth. The top colour is (hue, saturation,
// value); the bottom one is darker by the gradient size (0: flat, 1: black).
// Not mappable: it never answers a pick. Setters mark it for a rebuild.
//
// A picture (SetImage, an RGBA bitmap the host fills) lies over the
// gradient, as large as fits the viewport with the picture's proportions
// and centred, blended by its alpha times the image level (0: gradient
// only, 1: the picture as it is). The proportions are those of the image
// size when one is set, else the bitmap's; the viewport is the one set,
// else the camera's. A bitmap that reports a change is loaded again at the
// next draw.
//
// BuildObject, DrawObject and UnbuildObject need the context current.

#include "render/gl/Buffer.h"
#include "render/gl/Texture.h"
#include "render/objects/RgbaBitmap.h"
#include "render/scene/SceneObject.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneBackground)

class TEZ_API TezSceneBackground : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneBackground)
public:
    static TezRef<TezSceneBackground> Create();
    ~TezSceneBackground() override;

    void SetHue(float hue);
    void SetSaturation(float saturation);
    void SetValue(float value);
    void SetGradientSize(float size);
    void SetImage(TezRef<TezRgbaBitmap> image);
    TezRef<TezRgbaBitmap> GetImage() const { return m_image; }
    void SetImageLevel(float level);
    void SetImageSize(int width, int height);
    void SetViewport(int x, int y, int width, int height);

    float GetHue() const { return m_hue; }
    float GetSaturation() const { return m_saturation; }
    float GetValue() const { return m_value; }
    float GetGradientSize() const { return m_gradientSize; }
    float GetImageLevel() const { return m_imageLevel; }

    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneBackground();

private:
    float m_hue = 0.6f;
    float m_saturation = 0.15f;
    float m_value = 0.85f;
    float m_gradientSize = 0.45f;
    float m_imageLevel = 1.0f;
    int m_imageWidth = 0;
    int m_imageHeight = 0;
    int m_viewport[4] = {0, 0, 0, 0};
    void LoadImage();
    void DrawImage(TezSceneDrawData const& data);

    TezRef<TezRgbaBitmap> m_image;
    TezRef<TezTexture> m_imageTexture;
    uint64_t m_imageVersion = 0;
    TezRef<TezTexture> m_gradient;
    TezGLVertexArray m_vertexArray;
    TezGLBuffer m_vertices;
};
