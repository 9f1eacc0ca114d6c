#pragma once
// TezEffect: one GL program family with its per-pass set-up, what the scene
// calls around the drawing of the objects that use it.
//
// A scene holds one instance per effect type and, per pass, calls
// StartEffect, then for each object SetWorldMatrix, SetObjectColor and Apply
// before the object draws, then EndEffect. RenderPerPass true means that
// loop is pass-major (the program is bound once per pass), false that it is
// object-major. OnTop effects are drawn after all others.
//
// Lifecycle: constructed (no GL), initialised on the first StartEffect or on
// PostReset, released on PreReset. The destructor releases nothing in GL, so
// an effect may die without a context. Every call but the accessors needs
// the context current and runs on the thread that holds it.

#include "core/Identifiable.h"
#include "math/Matrix.h"
#include "math/Vector.h"

TEZ_DECLARE_REF_FUNCTIONS(TezEffect)

class TezSceneDrawData;

class TEZ_API TezEffect : public TezIdentifiableObject
{
public:
    ~TezEffect() override = default;

    virtual unsigned GetNumPasses() const = 0;
    virtual bool OnTop() const = 0;
    virtual bool RenderPerPass() const { return true; }
    // Binds the pass's program and sets the camera's matrices.
    virtual void StartEffect(TezSceneDrawData const& data, unsigned pass) = 0;
    virtual void EndEffect(TezSceneDrawData const& data, unsigned pass) = 0;
    virtual void SetWorldMatrix(TezMatrix44<float> const& matrix) = 0;
    virtual void SetObjectColor(TezVector4<float> const& color) = 0;
    // The last step before an object draws; nothing unless an effect says so.
    virtual void Apply(TezSceneDrawData const& data) {}
    virtual bool PreReset() = 0;
    virtual bool PostReset() = 0;
    // Program for plain drawing, and for mapping; 0 before initialisation.
    virtual unsigned GetProgramId() = 0;
    virtual unsigned GetMapProgramId() = 0;

protected:
    TezEffect() = default;
};
