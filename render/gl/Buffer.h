#pragma once
// TezGLBuffer, TezGLVertexArray: GL buffer and vertex array objects owned by
// value. Movable, not copyable; the name is made on Create (or the first
// upload) and deleted by the destructor or Release.
//
// All calls need the context current, the destructor included where a name
// exists. Names are plain unsigned integers so that hosts need no GL header.

#include "platform/Api.h"

#include <cstddef>

class TEZ_API TezGLBuffer
{
public:
    TezGLBuffer() = default;
    ~TezGLBuffer() { Release(); }
    TezGLBuffer(TezGLBuffer&& other) noexcept;
    TezGLBuffer& operator=(TezGLBuffer&& other) noexcept;
    TezGLBuffer(TezGLBuffer const&) = delete;
    TezGLBuffer& operator=(TezGLBuffer const&) = delete;

    // Binds to `target` (GL_ARRAY_BUFFER, GL_ELEMENT_ARRAY_BUFFER, ...) and
    // replaces the store with `bytes` bytes of `data` (null: undefined),
    // usage GL_STATIC_DRAW unless told otherwise. The buffer stays bound.
    void Upload(unsigned target, size_t bytes, void const* data, unsigned usage = 0);
    void Bind(unsigned target) const;
    void Release();

    unsigned GetName() const { return m_name; }
    size_t GetSize() const { return m_size; }
    explicit operator bool() const { return m_name != 0; }

private:
    unsigned m_name = 0;
    size_t m_size = 0;
};

class TEZ_API TezGLVertexArray
{
public:
    TezGLVertexArray() = default;
    ~TezGLVertexArray() { Release(); }
    TezGLVertexArray(TezGLVertexArray&& other) noexcept;
    TezGLVertexArray& operator=(TezGLVertexArray&& other) noexcept;
    TezGLVertexArray(TezGLVertexArray const&) = delete;
    TezGLVertexArray& operator=(TezGLVertexArray const&) = delete;

    // Makes the name where there is none, and binds it.
    void Bind();
    static void Unbind();
    // Float attribute `index` of `components` floats read from the buffer
    // bound to GL_ARRAY_BUFFER at `offset` with `stride`; the array must be
    // bound.
    static void SetFloatAttribute(unsigned index, int components, size_t stride, size_t offset);
    void Release();

    unsigned GetName() const { return m_name; }
    explicit operator bool() const { return m_name != 0; }

private:
    unsigned m_name = 0;
};
