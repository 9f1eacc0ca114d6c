#pragma once
// TezSceneDrawData: what one draw call through a scene is.
//
// The mode says what is drawn: plain (0, after construction), mapping (1:
// every object in its flat id colour, for picking) or indexing (2). Two
// flags narrow a pass to the objects that take part in it: overlay and
// transparent; setting one never clears the other, and nothing clears them.
// The scene fills in the effect and the pass as it goes.
//
// The effects take their matrices from GetCamera(): the camera set here, or
// else the render view's. The light is the scene's, set by TezScene::Draw
// when none is given. A plain value: copy it freely; it holds references.

#include "core/RefCounter.h"

#include <cstdint>

TEZ_DECLARE_REF_FUNCTIONS(TezEffect)
TEZ_DECLARE_REF_FUNCTIONS(TezRenderView)
TEZ_DECLARE_REF_FUNCTIONS(TezCameraView)
TEZ_DECLARE_REF_FUNCTIONS(TezLight)

class TEZ_API TezSceneDrawData
{
public:
    enum Mode { ModePlain = 0, ModeMapping = 1, ModeIndexing = 2 };
    enum Flag { FlagOverlay = 1, FlagTransparent = 2 };

    TezSceneDrawData();
    TezSceneDrawData(TezSceneDrawData const& other);
    TezSceneDrawData& operator=(TezSceneDrawData const& other);
    virtual ~TezSceneDrawData();

    void SetEffect(TezRef<TezEffect> effect);
    TezRef<TezEffect> GetEffect() const;
    void SetRenderView(TezRef<TezRenderView> view);
    TezRef<TezRenderView> GetRenderView() const;
    void SetEffectPass(unsigned pass) { m_pass = pass; }
    unsigned GetEffectPass() const { return m_pass; }

    int32_t GetMode() const { return m_mode; }
    void SetMapping() { m_mode = ModeMapping; }
    bool IsMapping() const { return m_mode == ModeMapping; }
    void SetIndexing() { m_mode = ModeIndexing; }
    bool IsIndexing() const { return m_mode == ModeIndexing; }
    void SetOverlay() { m_flags |= FlagOverlay; }
    bool IsOverlay() const { return (m_flags & FlagOverlay) != 0; }
    void SetTransparent() { m_flags |= FlagTransparent; }
    bool IsTransparent() const { return (m_flags & FlagTransparent) != 0; }
    int32_t GetFlags() const { return m_flags; }

    void SetCamera(TezRef<TezCameraView> camera);
    // The camera set here, else the render view's; null with neither.
    TezRef<TezCameraView> GetCamera() const;
    void SetLight(TezRef<TezLight> light);
    TezRef<TezLight> GetLight() const;

private:
    TezRef<TezEffect> m_effect;
    TezRef<TezRenderView> m_renderView;
    uint32_t m_pass = 0;
    int32_t m_mode = ModePlain;
    int32_t m_flags = 0;
    TezRef<TezCameraView> m_camera;
    TezRef<TezLight> m_light;
};
