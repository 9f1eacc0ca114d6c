#include "render/gl/MeshBuffers.h"

#include "mesh/IndexedMesh.h"

#include <GL/glew.h>

#include <algorithm>
#include <stdexcept>
#include <string>

void TezGLMesh::Upload(TezIndexedMesh const* mesh)
{
    m_numIndices = 0;
    if (!mesh || mesh->GetNumIndices() == 0 || mesh->GetNumVertices() == 0)
        return;
    std::vector<unsigned int> const& indices = mesh->GetIndices();
    unsigned int const largest = *std::max_element(indices.begin(), indices.end());
    if (largest >= mesh->GetNumVertices())
        throw std::runtime_error("TezGLMesh::Upload: index " + std::to_string(largest) + " past the " +
                                 std::to_string(mesh->GetNumVertices()) + " vertices");
    m_vertexArray.Bind();
    m_vertices.Upload(GL_ARRAY_BUFFER, mesh->GetNumVertices() * sizeof(TezMeshVertex), mesh->GetVertices().data());
    TezGLVertexArray::SetFloatAttribute(0, 3, sizeof(TezMeshVertex), 0);
    TezGLVertexArray::SetFloatAttribute(1, 3, sizeof(TezMeshVertex), sizeof(TezVector3<float>));
    // The element buffer binding is part of the vertex array's state.
    m_indices.Upload(GL_ELEMENT_ARRAY_BUFFER, indices.size() * sizeof(unsigned int), indices.data());
    TezGLVertexArray::Unbind();
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    m_numIndices = indices.size();
}

void TezGLMesh::Draw(unsigned mode)
{
    if (m_numIndices == 0)
        return;
    m_vertexArray.Bind();
    glDrawElements(mode, static_cast<GLsizei>(m_numIndices), GL_UNSIGNED_INT, nullptr);
    TezGLVertexArray::Unbind();
}

void TezGLMesh::Release()
{
    m_vertexArray.Release();
    m_vertices.Release();
    m_indices.Release();
    m_numIndices = 0;
}
