#include "mesh/MeshCurvature.h"

#include "math/Constants.h"
#include "math/Polynomial.h"

#include <algorithm>

#include <cmath>

TEZ_DEFINE_REF_FUNCTIONS(TezMeshCurvature)

namespace {

using Vec = TezVector3<float>;

// Sums of weights at or below this count as no neighbourhood.
constexpr float kSmallWeight = 1e-6f;

std::vector<float> FaceAreas(TezTopologyMesh const& mesh)
{
    TezRef<TezIndexedMesh> geometry = mesh.GetGeometry();
    std::vector<float> areas(mesh.GetNumFaces());
    for (size_t f = 0; f < areas.size(); ++f)
        areas[f] = geometry->GetTriangle(mesh.GetFace(f)->GetGeometry()).ComputeArea();
    return areas;
}

// The edge's weight: a sixth of the area of each face beside it.
double EdgeWeight(TezTopologyHalfEdge const& edge, std::vector<float> const& areas)
{
    double w = areas[edge.GetFace()->GetGeometry()] / 6.0;
    TezRef<TezTopologyHalfEdge> mate = edge.GetMate();
    if (mate && mate->GetFace())
        w += areas[mate->GetFace()->GetGeometry()] / 6.0;
    return w;
}

// Weighted squared misfit of Euler's formula k(theta) = H + D cos(2 theta - psi).
struct EulerFit
{
    std::vector<double> theta, residual, weight;
    double deviation = 0.0;

    double Error(double psi) const
    {
        double e = 0.0;
        for (size_t i = 0; i < theta.size(); ++i) {
            double const r = deviation * std::cos(2.0 * theta[i] - psi) - residual[i];
            e += weight[i] * r * r;
        }
        return e;
    }

    // The stationary points of Error in psi satisfy a quartic in t = tan(psi / 2);
    // psi = pi (t at infinity) is tried as well, and the least error wins.
    double BestAngle() const
    {
        double s4 = 0.0, c4 = 0.0, rs = 0.0, rc = 0.0;
        for (size_t i = 0; i < theta.size(); ++i) {
            s4 += weight[i] * std::sin(4.0 * theta[i]);
            c4 += weight[i] * std::cos(4.0 * theta[i]);
            rs += weight[i] * residual[i] * std::sin(2.0 * theta[i]);
            rc += weight[i] * residual[i] * std::cos(2.0 * theta[i]);
        }
        double const d = deviation;
        double const a4 = 0.5 * d * s4 + rs;
        double const a3 = 2.0 * d * c4 + 2.0 * rc;
        double const a2 = -3.0 * d * s4;
        double const a1 = -2.0 * d * c4 + 2.0 * rc;
        double const a0 = 0.5 * d * s4 - rs;

        double bestPsi = TezPi;
        double bestError = Error(bestPsi);
        auto consider = [&](double psi) {
            double const e = Error(psi);
            if (e < bestError) {
                bestError = e;
                bestPsi = psi;
            }
        };
        consider(0.0);
        double const scale = std::fabs(a4) + std::fabs(a3) + std::fabs(a2) + std::fabs(a1) + std::fabs(a0);
        if (scale > 0.0 && std::fabs(a4) > 1e-12 * scale) {
            double coefficients[4] = {a3 / a4, a2 / a4, a1 / a4, a0 / a4};
            TezVector2<double> roots[4];
            if (TezSolveQuartic(coefficients, roots))
                for (auto const& root : roots)
                    if (std::fabs(root.y) <= 1e-6 * (1.0 + std::fabs(root.x)))
                        consider(2.0 * std::atan(root.x));
        }
        return bestPsi;
    }
};

} // namespace

TezMeshCurvatureAnalyzer& TezMeshCurvatureAnalyzer::Instance()
{
    static TezMeshCurvatureAnalyzer instance;
    return instance;
}

TezRef<TezMeshCurvature> TezMeshCurvatureAnalyzer::Compute(TezRef<TezTopologyMesh> mesh) const
{
    if (!mesh || !mesh->GetGeometry())
        return nullptr;
    TezRef<TezMeshCurvature> result(new TezMeshCurvature);
    result->m_mesh = mesh;
    size_t const n = mesh->GetNumVertices();
    result->m_mean.assign(n, 0.0f);
    result->m_gaussian.assign(n, 0.0f);
    result->m_maximum.assign(n, 0.0f);
    result->m_minimum.assign(n, 0.0f);
    result->m_maximumDirection.assign(n, Vec(0.0f, 0.0f, 0.0f));
    result->m_minimumDirection.assign(n, Vec(0.0f, 0.0f, 0.0f));
    ComputeAverage(*mesh, *result);
    ComputeGaussian(*mesh, *result);
    ComputePrincipleValues(*result);
    ComputePrincipleDirections(*mesh, *result);
    return result;
}

void TezMeshCurvatureAnalyzer::ComputeAverage(TezTopologyMesh const& mesh, TezMeshCurvature& result) const
{
    std::vector<float> const areas = FaceAreas(mesh);
    TezRef<TezIndexedMesh> geometry = mesh.GetGeometry();
    for (size_t i = 0; i < mesh.GetNumVertices(); ++i) {
        TezTopologyVertex const* v = mesh.m_vertices[i].Get();
        TezMeshVertex const& pv = geometry->GetVertex(v->m_geometry);
        double sum = 0.0, weights = 0.0;
        for (TezTopologyHalfEdge const* h : v->m_edges) {
            Vec const e = geometry->GetVertex(h->m_next->m_vertex->m_geometry).position - pv.position;
            float const length2 = e.LengthSquared();
            if (length2 <= 0.0f)
                continue;
            double const kappa = 2.0 * static_cast<double>(pv.normal * e) / length2;
            double const w = EdgeWeight(*h, areas);
            sum += w * kappa;
            weights += w;
        }
        if (std::fabs(static_cast<float>(weights)) > kSmallWeight)
            result.m_mean[i] = static_cast<float>(sum / weights);
    }
}

void TezMeshCurvatureAnalyzer::ComputeGaussian(TezTopologyMesh const& mesh, TezMeshCurvature& result) const
{
    TezRef<TezIndexedMesh> geometry = mesh.GetGeometry();
    std::vector<float> const areas = FaceAreas(mesh);
    std::vector<Vec> angles(mesh.GetNumFaces());
    for (size_t f = 0; f < angles.size(); ++f)
        angles[f] = geometry->GetTriangle(mesh.m_faces[f]->m_geometry).ComputeAngles();

    for (size_t i = 0; i < mesh.GetNumVertices(); ++i) {
        TezTopologyVertex const* v = mesh.m_vertices[i].Get();
        double angleSum = 0.0, areaSum = 0.0;
        for (TezTopologyHalfEdge const* h : v->m_edges) {
            unsigned int const f = h->m_face->m_geometry;
            angleSum += angles[f][static_cast<int>(h->m_geometry)];
            areaSum += areas[f] / 3.0;
        }
        if (std::fabs(static_cast<float>(areaSum)) > kSmallWeight)
            result.m_gaussian[i] = static_cast<float>((6.283185307179586 - angleSum) / areaSum);
    }
}

void TezMeshCurvatureAnalyzer::ComputePrincipleValues(TezMeshCurvature& result) const
{
    for (size_t i = 0; i < result.m_mean.size(); ++i) {
        float const h = result.m_mean[i];
        float const d = std::max(0.0f, h * h - result.m_gaussian[i]);
        result.m_maximum[i] = h + std::sqrt(d);
        result.m_minimum[i] = h - std::sqrt(d);
    }
}

void TezMeshCurvatureAnalyzer::ComputePrincipleDirections(TezTopologyMesh const& mesh, TezMeshCurvature& result) const
{
    TezRef<TezIndexedMesh> geometry = mesh.GetGeometry();
    std::vector<float> const areas = FaceAreas(mesh);
    EulerFit fit;
    for (size_t i = 0; i < mesh.GetNumVertices(); ++i) {
        TezTopologyVertex const* v = mesh.m_vertices[i].Get();
        TezMeshVertex const& pv = geometry->GetVertex(v->m_geometry);
        Vec n = pv.normal;
        if (n.Normalize() < 1e-6f)
            continue;
        Vec const u = n.Perpendicular();
        Vec const w = n ^ u;

        fit.theta.clear();
        fit.residual.clear();
        fit.weight.clear();
        fit.deviation = 0.5 * (static_cast<double>(result.m_maximum[i]) - result.m_minimum[i]);
        for (TezTopologyHalfEdge const* h : v->m_edges) {
            Vec const e = geometry->GetVertex(h->m_next->m_vertex->m_geometry).position - pv.position;
            float const length2 = e.LengthSquared();
            Vec const t = e - n * (n * e);
            if (length2 <= 0.0f || t.LengthSquared() <= 0.0f)
                continue;
            double const kappa = 2.0 * static_cast<double>(pv.normal * e) / length2;
            fit.theta.push_back(std::atan2(static_cast<double>(t * w), static_cast<double>(t * u)));
            fit.residual.push_back(kappa - result.m_mean[i]);
            fit.weight.push_back(EdgeWeight(*h, areas));
        }
        double const phi = fit.theta.empty() ? 0.0 : 0.5 * fit.BestAngle();
        Vec maximum = u * static_cast<float>(std::cos(phi)) + w * static_cast<float>(std::sin(phi));
        maximum.Normalize();
        Vec minimum = n ^ maximum;
        minimum.Normalize();
        result.m_maximumDirection[i] = maximum;
        result.m_minimumDirection[i] = minimum;
    }
}
