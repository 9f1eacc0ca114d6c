#pragma once
// TezMultiPassEffect: the common body of the effects that hold one program
// pair (plain and map) per pass, some with a geometry stage: the table of
// sources per pass, lazy building on the first StartEffect, the matrices,
// release and rebuild. Behaves as TezDefaultEffectImpl does for a missing
// or broken shader: the pass's program stays 0, the failure is logged, and
// the next frame tries again.
//
// A pass whose map fragment is empty maps with its plain program. Effects
// that set no camera matrices (screen-space drawing) say so with
// SetUsesCamera(false). Needs the context current for all but construction.

#include "core/String.h"
#include "render/effects/Effect.h"

#include <vector>

class TEZ_API TezMultiPassEffect : public TezEffect
{
public:
    struct PassSource
    {
        char const* vertex;
        char const* geometry; // null: none
        char const* fragment;
        char const* mapFragment; // null: map with the plain program
    };

    unsigned GetNumPasses() const override { return m_numPasses; }
    bool OnTop() const override { return false; }
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;
    void EndEffect(TezSceneDrawData const& data, unsigned pass) override;
    void SetWorldMatrix(TezMatrix44<float> const& matrix) override;
    void SetObjectColor(TezVector4<float> const& color) override;
    bool PreReset() override;
    bool PostReset() override;
    unsigned GetProgramId() override;
    unsigned GetMapProgramId() override;

    virtual bool GLInitialize();
    virtual void GLRelease();

    unsigned GetCurrentProgram() const { return m_currentProgram; }
    // Programs of one pass; 0 before initialisation or for no such pass.
    unsigned GetProgram(unsigned pass, bool mapping) const;

protected:
    // `sources` holds one entry per distinct program pair; passes beyond it
    // use its last entry.
    TezMultiPassEffect(unsigned numPasses, std::vector<PassSource> sources, std::vector<char const*> attributes);
    void SetUsesCamera(bool uses) { m_usesCamera = uses; }
    bool IsInitialized() const { return m_initialized; }

    unsigned m_currentProgram = 0;

private:
    unsigned m_numPasses;
    std::vector<PassSource> m_sources;
    std::vector<char const*> m_attributes;
    std::vector<unsigned> m_programs;    // per source entry
    std::vector<unsigned> m_mapPrograms; // per source entry, may repeat m_programs
    bool m_initialized = false;
    bool m_usesCamera = true;
};
