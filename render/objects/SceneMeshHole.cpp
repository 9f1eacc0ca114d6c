#include "render/objects/SceneMeshHole.h"

#include "mesh/IndexedMesh.h"
#include "mesh/TopologyMesh.h"
#include "render/effects/ScreenEffects.h"
#include "render/objects/SceneIndexedMesh.h"
#include "render/objects/detail/ObjectGL.h"

TEZ_DEFINE_REF_FUNCTIONS(TezSceneMeshHole)
TEZ_DEFINE_REF_FUNCTIONS(TezTopologyHole)
TEZ_TYPIFIED_IMPL(TezSceneMeshHole, "Mesh Hole Scene Object")

TezSceneMeshHole::TezSceneMeshHole() : TezSceneObject(TezLineEffect::StaticType())
{
    SetProperty(Visible, true);
    SetColor(TezVector4<float>(0.95f, 0.15f, 0.1f, 1.0f));
}

TezSceneMeshHole::~TezSceneMeshHole() = default;

TezRef<TezSceneMeshHole> TezSceneMeshHole::Create(TezRef<TezTopologyHole> hole,
                                                  TezRef<TezRenderableIndexedMesh> renderable)
{
    TezRef<TezSceneMeshHole> object(new TezSceneMeshHole());
    object->m_hole = hole;
    object->m_renderable = renderable;
    if (hole)
        for (int i = 0; i < hole->GetNumEdges(); ++i) {
            TezTopologyHalfEdge const* edge = hole->GetEdge(i).Get();
            if (edge && edge->Vertex())
                object->m_loop.push_back(edge->Vertex()->GetGeometry());
        }
    object->SetProperty(NeedsBuild, true);
    return object;
}

TezRef<TezTopologyHole> TezSceneMeshHole::GetHole() const { return m_hole; }

std::vector<TezVector3<float>> TezSceneMeshHole::LoopPositions() const
{
    std::vector<TezVector3<float>> positions;
    TezRef<TezIndexedMesh> mesh = m_renderable ? m_renderable->GetMesh() : nullptr;
    if (!mesh)
        return positions;
    for (unsigned int v : m_loop)
        if (v < mesh->GetNumVertices())
            positions.push_back(mesh->GetVertex(v).position);
    return positions;
}

TezBox3<float> TezSceneMeshHole::GetObjectBounds()
{
    TezBox3<float> box;
    for (TezVector3<float> const& p : LoopPositions())
        box += p;
    return box;
}

bool TezSceneMeshHole::BuildObject()
{
    std::vector<float> floats;
    for (TezVector3<float> const& p : LoopPositions())
        floats.insert(floats.end(), {p.x, p.y, p.z});
    m_lines.Upload(floats, {3});
    return !m_lines.IsEmpty();
}

bool TezSceneMeshHole::UnbuildObject()
{
    m_lines.Release();
    return true;
}

bool TezSceneMeshHole::DrawObject(TezSceneDrawData const&)
{
    if (m_lines.IsEmpty())
        return true;
    // The loop lies on the mesh's own edges: a depth range drawn a little
    // nearer lets it win against the triangles it borders.
    GLfloat range[2] = {0.0f, 1.0f};
    glGetFloatv(GL_DEPTH_RANGE, range);
    glDepthRange(range[0], range[0] + (range[1] - range[0]) * 0.9999);
    m_lines.Draw(GL_LINE_LOOP);
    glDepthRange(range[0], range[1]);
    return true;
}
