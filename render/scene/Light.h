#pragma once
// TezLight: the one light of a scene, and the matrices of its shadow map.
//
// Holds the light's position and colours (ambient (0.6, 0.6, 0.6, 1) and
// diffuse (0.9, 0.9, 0.9, 1) by default) and computes a view and projection
// around the current shadow bounds: ComputeNormalShadowMatrices in world
// space, ComputePSMShadowMatrices in the camera's post-projective space.
// Matrices are valid after a compute; SetShadowBounds only stores. An empty
// box gives infinities: pass a real one. No GL is touched here.
//
// What the effects read: the shiny and text effects put the position into
// "lightPosition"; a light left at the origin stands at the eye (a head
// light), which is how a scene starts. A disabled light leaves their
// "lightPosition" as it was.

#include "core/RefCounter.h"
#include "math/Box.h"
#include "math/Matrix.h"
#include "math/Vector.h"

TEZ_DECLARE_REF_FUNCTIONS(TezLight)

class TezSceneDrawData;

class TEZ_API TezLight : public TezRefCounter
{
public:
    static TezRef<TezLight> Create();
    ~TezLight() override = default;

    // ComputeNormalShadowMatrices(shadow bounds); `data` is not looked at.
    virtual bool ComputeShadowMatrices(TezSceneDrawData const& data);
    virtual TezMatrix44<float> GetShadowViewMatrix() const { return m_shadowView; }
    virtual TezMatrix44<float> GetShadowProjectionMatrix() const { return m_shadowProjection; }
    // Projection times view.
    virtual TezMatrix44<float> GetShadowMatrix() const;
    // False, with nothing changed, when data has no camera.
    virtual bool ComputePSMShadowMatrices(TezSceneDrawData const& data, TezBox3<float> const& box);
    virtual bool ComputeNormalShadowMatrices(TezBox3<float> const& box);
    virtual void SetShadowBounds(TezBox3<float> const& box) { m_shadowBounds = box; }

    TezBox3<float> const& GetShadowBounds() const { return m_shadowBounds; }
    TezVector3<float> const& GetPosition() const { return m_position; }
    void SetPosition(TezVector3<float> const& position) { m_position = position; }
    TezVector4<float> const& GetAmbient() const { return m_ambient; }
    void SetAmbient(TezVector4<float> const& ambient) { m_ambient = ambient; }
    TezVector4<float> const& GetDiffuse() const { return m_diffuse; }
    void SetDiffuse(TezVector4<float> const& diffuse) { m_diffuse = diffuse; }
    bool IsEnabled() const { return m_enabled; }
    void SetEnabled(bool enabled) { m_enabled = enabled; }

private:
    TezLight();

    TezVector3<float> m_position{0.0f, 0.0f, 0.0f};
    TezVector4<float> m_ambient{0.6f, 0.6f, 0.6f, 1.0f};
    TezVector4<float> m_diffuse{0.9f, 0.9f, 0.9f, 1.0f};
    bool m_enabled = true;
    TezMatrix44<float> m_shadowView;
    TezMatrix44<float> m_shadowProjection;
    TezBox3<float> m_shadowBounds;
};
