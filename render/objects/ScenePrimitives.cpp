#include "render/objects/ScenePrimitives.h"

#include "mesh/IndexedMesh.h"
#include "render/effects/DefaultEffects.h"

#include <GL/glew.h>

TEZ_DEFINE_REF_FUNCTIONS(TezSceneBox)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneCone)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneCylinder)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneSphere)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneQuad)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneFrame)
TEZ_TYPIFIED_IMPL(TezSceneBox, "Box")
TEZ_TYPIFIED_IMPL(TezSceneCone, "Cone")
TEZ_TYPIFIED_IMPL(TezSceneCylinder, "Cylinder")
TEZ_TYPIFIED_IMPL(TezSceneSphere, "Sphere")
TEZ_TYPIFIED_IMPL(TezSceneQuad, "Quad")
TEZ_TYPIFIED_IMPL(TezSceneFrame, "Ring")

namespace {
// Round shapes: enough facets that a silhouette a few hundred pixels across
// does not look cut.
constexpr int kSlices = 48;
} // namespace

TezSceneBox::TezSceneBox() : TezSceneObject(TezUnlitEffect::StaticType()) {}
TezSceneBox::~TezSceneBox() = default;

TezRef<TezSceneBox> TezSceneBox::Create(TezBox3<float> const& box)
{
    TezRef<TezSceneBox> object(new TezSceneBox());
    object->SetBox(box);
    return object;
}

void TezSceneBox::SetBox(TezBox3<float> const& box)
{
    m_box = box;
    SetProperty(NeedsBuild, true);
}

bool TezSceneBox::BuildObject()
{
    if (m_box.Empty()) {
        m_edges.Release();
        return true;
    }
    std::vector<float> corners;
    for (int c = 0; c < 8; ++c) {
        TezVector3<float> const p = m_box.Corner(c & 1, c & 2, c & 4);
        corners.insert(corners.end(), {p.x, p.y, p.z});
    }
    // Corner c has x from bit 0, y from bit 1, z from bit 2: an edge joins
    // two corners that differ in one bit.
    std::vector<unsigned> edges;
    for (unsigned c = 0; c < 8; ++c)
        for (unsigned bit : {1u, 2u, 4u})
            if (!(c & bit))
                edges.insert(edges.end(), {c, c | bit});
    m_edges.Upload(corners, {3}, edges);
    return true;
}

bool TezSceneBox::UnbuildObject()
{
    m_edges.Release();
    return true;
}

bool TezSceneBox::DrawObject(TezSceneDrawData const&)
{
    m_edges.Draw(GL_LINES);
    return true;
}

TezSceneCone::TezSceneCone() = default;

TezRef<TezSceneCone> TezSceneCone::Create(float radius, float height)
{
    TezRef<TezSceneCone> object(new TezSceneCone());
    object->SetCone(radius, height);
    return object;
}

void TezSceneCone::SetCone(float radius, float height)
{
    m_radius = radius;
    m_height = height;
    SetMesh(TezIndexedMesh::CreateCylinder(kSlices, 2, radius, 0.0f, height));
}

TezSceneCylinder::TezSceneCylinder() = default;

TezRef<TezSceneCylinder> TezSceneCylinder::Create(float radius, float height)
{
    TezRef<TezSceneCylinder> object(new TezSceneCylinder());
    object->SetCylinder(radius, height);
    return object;
}

void TezSceneCylinder::SetCylinder(float radius, float height)
{
    m_radius = radius;
    m_height = height;
    SetMesh(TezIndexedMesh::CreateCylinder(kSlices, 2, radius, radius, height));
}

TezSceneSphere::TezSceneSphere() = default;

TezRef<TezSceneSphere> TezSceneSphere::Create(float radius)
{
    TezRef<TezSceneSphere> object(new TezSceneSphere());
    object->SetRadius(radius);
    return object;
}

void TezSceneSphere::SetRadius(float radius)
{
    m_radius = radius;
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateSphere(kSlices / 2, kSlices);
    for (TezMeshVertex& vertex : mesh->GetVertices())
        vertex.position *= radius;
    SetMesh(mesh);
}

TezSceneQuad::TezSceneQuad() = default;

TezRef<TezSceneQuad> TezSceneQuad::Create(float halfWidth, float halfHeight)
{
    TezRef<TezSceneQuad> object(new TezSceneQuad());
    object->SetQuad(halfWidth, halfHeight);
    return object;
}

void TezSceneQuad::SetQuad(float halfWidth, float halfHeight)
{
    SetMesh(TezIndexedMesh::CreateQuad(halfWidth, halfHeight));
}

TezSceneFrame::TezSceneFrame() = default;

TezRef<TezSceneFrame> TezSceneFrame::Create(float outerHalfSize, float innerHalfSize, float height)
{
    TezRef<TezSceneFrame> object(new TezSceneFrame());
    object->SetFrame(outerHalfSize, innerHalfSize, height);
    return object;
}

void TezSceneFrame::SetFrame(float outerHalfSize, float innerHalfSize, float height)
{
    SetMesh(TezIndexedMesh::CreateFrame(outerHalfSize, innerHalfSize, height));
}
