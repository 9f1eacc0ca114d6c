#include "render/gl/Primitives.h"

#include <GL/glew.h>

#include <algorithm>
#include <numeric>

void TezGLPrimitives::Upload(std::vector<float> const& vertices, std::initializer_list<int> attributeSizes,
                             std::vector<unsigned> const& indices)
{
    int const floatsPerVertex = std::accumulate(attributeSizes.begin(), attributeSizes.end(), 0);
    Release();
    if (vertices.empty() || floatsPerVertex <= 0)
        return;
    size_t const stride = static_cast<size_t>(floatsPerVertex) * sizeof(float);
    m_array.Bind();
    m_vertices.Upload(GL_ARRAY_BUFFER, vertices.size() * sizeof(float), vertices.data());
    size_t offset = 0;
    unsigned location = 0;
    for (int size : attributeSizes) {
        TezGLVertexArray::SetFloatAttribute(location++, size, stride, offset);
        offset += static_cast<size_t>(size) * sizeof(float);
    }
    if (!indices.empty())
        m_indices.Upload(GL_ELEMENT_ARRAY_BUFFER, indices.size() * sizeof(unsigned), indices.data());
    TezGLVertexArray::Unbind();
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    m_numVertices = vertices.size() / static_cast<size_t>(floatsPerVertex);
    m_numIndices = indices.size();
}

void TezGLPrimitives::Draw(unsigned mode, size_t first, long count) const
{
    if (m_numVertices == 0)
        return;
    size_t const total = m_numIndices ? m_numIndices : m_numVertices;
    if (first >= total)
        return;
    size_t const n = count < 0 ? total - first : std::min(total - first, static_cast<size_t>(count));
    m_array.Bind();
    if (m_numIndices)
        glDrawElements(mode, static_cast<GLsizei>(n), GL_UNSIGNED_INT,
                       reinterpret_cast<void const*>(first * sizeof(unsigned)));
    else
        glDrawArrays(mode, static_cast<GLint>(first), static_cast<GLsizei>(n));
    TezGLVertexArray::Unbind();
}

void TezGLPrimitives::Release()
{
    m_array.Release();
    m_vertices.Release();
    m_indices.Release();
    m_numVertices = 0;
    m_numIndices = 0;
}
