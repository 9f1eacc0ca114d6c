#pragma once
// TezDefaultEffectImpl: the base of the one-pass effects: a vertex shader
// with a fragment shader for plain drawing and a map fragment shader for the
// mapping pass (which must write "objectColor" unchanged, so that id colours
// survive). The shader files are found through the resource manager.
//
// StartEffect builds the programs on first use (GLInitialize), binds the map
// program in mapping mode and the plain one otherwise, and sets
// "projectionMatrix" and "viewMatrix" from the draw data's camera and
// "modelMatrix" to the identity. SetWorldMatrix and SetObjectColor write
// "modelMatrix" and "objectColor" on the bound program; a program that lacks
// a uniform simply does not get it. EndEffect unbinds.
//
// A failed GLInitialize logs what failed ("Missing shader file with path:
// ...", "Error compiling vertex shader: ...", "Error linking shader program
// with ... and ...") and leaves the program at 0, so StartEffect tries again
// in the next frame and the objects draw unshaded meanwhile: no exception,
// no crash. "inPosition" is attribute 0 and, with normals, "inNormal" 1.
// An empty map fragment name makes the map program the plain one.
// Everything but the constructor needs the context current.

#include "core/String.h"
#include "render/effects/Effect.h"

class TEZ_API TezDefaultEffectImpl : public TezEffect
{
public:
    unsigned GetNumPasses() const override { return 1; }
    bool OnTop() const override { return false; }
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;
    void EndEffect(TezSceneDrawData const& data, unsigned pass) override;
    void SetWorldMatrix(TezMatrix44<float> const& matrix) override;
    void SetObjectColor(TezVector4<float> const& color) override;
    // GLRelease, then GLInitialize; both answer true.
    bool PreReset() override;
    bool PostReset() override;
    unsigned GetProgramId() override { return m_program; }
    unsigned GetMapProgramId() override { return m_mapProgram; }

    // Builds shaders and programs; false (with everything it made deleted)
    // on failure.
    virtual bool GLInitialize();
    // Detaches and deletes shaders and programs and zeroes the names.
    virtual void GLRelease();

    // The program bound by the last StartEffect.
    unsigned GetCurrentProgram() const { return m_currentProgram; }
    TezString const& GetVertexFile() const { return m_vertexFile; }
    TezString const& GetFragmentFile() const { return m_fragmentFile; }
    TezString const& GetMapFragmentFile() const { return m_mapFragmentFile; }

protected:
    TezDefaultEffectImpl(char const* vertexFile, char const* fragmentFile, char const* mapFragmentFile,
                         bool hasNormals);

    TezString m_vertexFile;
    TezString m_fragmentFile;
    TezString m_mapFragmentFile;
    bool m_hasNormals;
    unsigned m_vertexShader = 0;
    unsigned m_fragmentShader = 0;
    unsigned m_mapFragmentShader = 0;
    unsigned m_program = 0;
    unsigned m_mapProgram = 0;
    unsigned m_currentProgram = 0;
};
