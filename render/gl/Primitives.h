#pragma once
// TezGLPrimitives: float vertices of one or more attributes on the graphics
// card, packed one vertex after the other (attribute i at location i, of
// attributeSizes[i] floats), with optional 32-bit indices, drawn in any
// mode: the lines, points and ribbons of the scene object kinds.
// Movable, not copyable; Upload, Draw and Release need the context current.

#include "platform/Api.h"
#include "render/gl/Buffer.h"

#include <cstddef>
#include <initializer_list>
#include <vector>

class TEZ_API TezGLPrimitives
{
public:
    TezGLPrimitives() = default;
    TezGLPrimitives(TezGLPrimitives&&) noexcept = default;
    TezGLPrimitives& operator=(TezGLPrimitives&&) noexcept = default;

    // Replaces the contents; an empty vertex list leaves nothing to draw.
    void Upload(std::vector<float> const& vertices, std::initializer_list<int> attributeSizes,
                std::vector<unsigned> const& indices = {});
    // glDrawElements over the indices, or glDrawArrays over the vertices
    // when there are none, in `mode` (GL_LINES, ...); `first` and `count`
    // count indices (or vertices), a count of -1 meaning all from first.
    void Draw(unsigned mode, size_t first = 0, long count = -1) const;
    void Release();

    bool IsEmpty() const { return m_numVertices == 0; }
    size_t GetNumVertices() const { return m_numVertices; }
    size_t GetNumIndices() const { return m_numIndices; }

private:
    mutable TezGLVertexArray m_array;
    TezGLBuffer m_vertices;
    TezGLBuffer m_indices;
    size_t m_numVertices = 0;
    size_t m_numIndices = 0;
};
