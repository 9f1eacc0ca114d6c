#include "render/objects/SceneMesh.h"

#include "mesh/IndexedMesh.h"
#include "render/effects/DefaultEffects.h"

TEZ_DEFINE_REF_FUNCTIONS(TezSceneMesh)
TEZ_TYPIFIED_IMPL(TezSceneMesh, "Mesh Scene Object")

TezSceneMesh::TezSceneMesh() = default;

TezSceneMesh::TezSceneMesh(uint32_t effectType) : TezSceneObject(effectType) {}

TezSceneMesh::~TezSceneMesh() = default;

TezRef<TezSceneMesh> TezSceneMesh::Create(TezRef<TezIndexedMesh> mesh, uint32_t effectType)
{
    TezRef<TezSceneMesh> object(effectType ? new TezSceneMesh(effectType) : new TezSceneMesh());
    object->SetMesh(mesh);
    return object;
}

void TezSceneMesh::SetMesh(TezRef<TezIndexedMesh> mesh)
{
    m_mesh = mesh;
    m_bounds = mesh ? mesh->ComputeBounds() : TezBox3<float>();
    SetProperty(NeedsBuild, true);
}

TezRef<TezIndexedMesh> TezSceneMesh::GetMesh() const { return m_mesh; }

TezBox3<float> TezSceneMesh::GetObjectBounds() { return m_bounds; }

bool TezSceneMesh::BuildObject()
{
    m_buffers.Upload(m_mesh.Get());
    ++m_buildCount;
    return !m_buffers.IsEmpty();
}

bool TezSceneMesh::UnbuildObject()
{
    m_buffers.Release();
    return true;
}

bool TezSceneMesh::DrawObject(TezSceneDrawData const&)
{
    m_buffers.Draw(m_drawMode);
    return true;
}
