#pragma once
// TezGLMesh: a triangle mesh on the graphics card, as the effects read it:
// attribute 0 the position, attribute 1 the normal (three floats each, the
// 24-byte vertices of TezIndexedMesh as they stand), and 32-bit indices.
// Movable, not copyable; Upload, Draw and Release need the context current.

#include "core/RefCounter.h"
#include "platform/Api.h"
#include "render/gl/Buffer.h"

#include <cstddef>

TEZ_DECLARE_REF_FUNCTIONS(TezIndexedMesh)

class TEZ_API TezGLMesh
{
public:
    TezGLMesh() = default;
    TezGLMesh(TezGLMesh&&) noexcept = default;
    TezGLMesh& operator=(TezGLMesh&&) noexcept = default;

    // Replaces the buffers' contents with the mesh; an empty or null mesh
    // leaves nothing to draw. Indices past the vertices are refused with
    // std::runtime_error rather than handed to the driver.
    void Upload(TezIndexedMesh const* mesh);
    // glDrawElements of all triangles; nothing without an upload.
    void Draw(unsigned mode = 0x0004 /* GL_TRIANGLES */);
    void Release();

    size_t GetNumIndices() const { return m_numIndices; }
    bool IsEmpty() const { return m_numIndices == 0; }

private:
    TezGLVertexArray m_vertexArray;
    TezGLBuffer m_vertices;
    TezGLBuffer m_indices;
    size_t m_numIndices = 0;
};
