#pragma once
// Discrete curvature at the vertices of a topology mesh.
//
// Mean curvature: the area-weighted mean of the normal curvatures
// 2 n.e / |e|^2 along the vertex's outgoing edges, with the indexed mesh's
// vertex normals n (so its sign follows the normals: outward normals on a
// sphere give -1/r). Gaussian curvature: the angle defect over a third of the
// area of the faces around the vertex. Principal values H +- sqrt(H^2 - K).
// Principal directions: a weighted least-squares fit of Euler's formula to the
// edges' normal curvatures in the tangent plane, the angle found as the best
// real root of a quartic in its tangent. Vertices without a usable
// neighbourhood get zeros; directions are unit tangent vectors wherever the
// vertex has a normal.

#include "core/RefCounter.h"
#include "math/Vector.h"
#include "mesh/TopologyMesh.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezMeshCurvature)

class TEZ_API TezMeshCurvature : public TezRefCounter
{
public:
    TezRef<TezTopologyMesh> GetMesh() const { return m_mesh; }
    size_t GetNumVertices() const { return m_mean.size(); }
    // By vertex number.
    float GetMeanCurvature(size_t i) const { return m_mean[i]; }
    float GetGaussianCurvature(size_t i) const { return m_gaussian[i]; }
    float GetMaximumCurvature(size_t i) const { return m_maximum[i]; }
    float GetMinimumCurvature(size_t i) const { return m_minimum[i]; }
    TezVector3<float> const& GetMaximumDirection(size_t i) const { return m_maximumDirection[i]; }
    TezVector3<float> const& GetMinimumDirection(size_t i) const { return m_minimumDirection[i]; }

    ~TezMeshCurvature() override = default;

private:
    friend class TezMeshCurvatureAnalyzer;
    TezMeshCurvature() = default;

    TezRef<TezTopologyMesh> m_mesh;
    std::vector<float> m_mean;
    std::vector<float> m_gaussian;
    std::vector<float> m_maximum;
    std::vector<float> m_minimum;
    std::vector<TezVector3<float>> m_maximumDirection;
    std::vector<TezVector3<float>> m_minimumDirection;
};

// Stateless; one instance serves all.
class TEZ_API TezMeshCurvatureAnalyzer
{
public:
    static TezMeshCurvatureAnalyzer& Instance();

    // Null for a null mesh or one without geometry.
    TezRef<TezMeshCurvature> Compute(TezRef<TezTopologyMesh> mesh) const;

private:
    TezMeshCurvatureAnalyzer() = default;

    void ComputeAverage(TezTopologyMesh const& mesh, TezMeshCurvature& result) const;
    void ComputeGaussian(TezTopologyMesh const& mesh, TezMeshCurvature& result) const;
    void ComputePrincipleValues(TezMeshCurvature& result) const;
    void ComputePrincipleDirections(TezTopologyMesh const& mesh, TezMeshCurvature& result) const;
};
