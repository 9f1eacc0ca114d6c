#include "render/gl/Buffer.h"

#include <GL/glew.h>

#include <utility>

TezGLBuffer::TezGLBuffer(TezGLBuffer&& other) noexcept
    : m_name(std::exchange(other.m_name, 0u)), m_size(std::exchange(other.m_size, size_t(0)))
{
}

TezGLBuffer& TezGLBuffer::operator=(TezGLBuffer&& other) noexcept
{
    if (this != &other) {
        Release();
        m_name = std::exchange(other.m_name, 0u);
        m_size = std::exchange(other.m_size, size_t(0));
    }
    return *this;
}

void TezGLBuffer::Upload(unsigned target, size_t bytes, void const* data, unsigned usage)
{
    if (m_name == 0)
        glGenBuffers(1, &m_name);
    glBindBuffer(target, m_name);
    glBufferData(target, static_cast<GLsizeiptr>(bytes), data, usage ? usage : GL_STATIC_DRAW);
    m_size = bytes;
}

void TezGLBuffer::Bind(unsigned target) const { glBindBuffer(target, m_name); }

void TezGLBuffer::Release()
{
    if (m_name != 0)
        glDeleteBuffers(1, &m_name);
    m_name = 0;
    m_size = 0;
}

TezGLVertexArray::TezGLVertexArray(TezGLVertexArray&& other) noexcept : m_name(std::exchange(other.m_name, 0u)) {}

TezGLVertexArray& TezGLVertexArray::operator=(TezGLVertexArray&& other) noexcept
{
    if (this != &other) {
        Release();
        m_name = std::exchange(other.m_name, 0u);
    }
    return *this;
}

void TezGLVertexArray::Bind()
{
    if (m_name == 0)
        glGenVertexArrays(1, &m_name);
    glBindVertexArray(m_name);
}

void TezGLVertexArray::Unbind() { glBindVertexArray(0); }

void TezGLVertexArray::SetFloatAttribute(unsigned index, int components, size_t stride, size_t offset)
{
    glEnableVertexAttribArray(index);
    glVertexAttribPointer(index, components, GL_FLOAT, GL_FALSE, static_cast<GLsizei>(stride),
                          reinterpret_cast<void const*>(offset));
}

void TezGLVertexArray::Release()
{
    if (m_name != 0)
        glDeleteVertexArrays(1, &m_name);
    m_name = 0;
}
