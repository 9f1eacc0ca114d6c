#pragma once
// TezMeshIndexList: a counted list of triangle (or vertex) numbers.
//
// Plain storage for passing sets of triangles between the mesh operations,
// e.g. to TezIndexedMesh::RemoveTriangles. No range checks: Value and
// operator[] trust the index as std::vector does.

#include "core/RefCounter.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezMeshIndexList)

class TEZ_API TezMeshIndexList : public TezRefCounter
{
public:
    static TezRef<TezMeshIndexList> Create();

    void Add(unsigned int value) { m_indices.push_back(value); }
    void Resize(size_t count) { m_indices.resize(count); }
    void SetValue(size_t i, unsigned int value) { m_indices[i] = value; }
    unsigned int Value(size_t i) const { return m_indices[i]; }
    size_t GetNumIndices() const { return m_indices.size(); }
    unsigned int& operator[](size_t i) { return m_indices[i]; }
    unsigned int const& operator[](size_t i) const { return m_indices[i]; }

    std::vector<unsigned int>& GetIndices() { return m_indices; }
    std::vector<unsigned int> const& GetIndices() const { return m_indices; }

protected:
    TezMeshIndexList() = default;

private:
    std::vector<unsigned int> m_indices;
};
