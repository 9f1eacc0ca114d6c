#include "render/objects/SceneIndexedMesh.h"

#include "core/Logger.h"
#include "mesh/IndexedMesh.h"
#include "mesh/MeshIndexList.h"
#include "mesh/TopologyMesh.h"
#include "render/effects/MeshEffects.h"
#include "render/objects/detail/ObjectGL.h"
#include "render/scene/SceneDrawData.h"

#include <numeric>

using namespace tez_objects;

TEZ_DEFINE_REF_FUNCTIONS(TezRenderableIndexedMesh)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneIndexedMesh)
TEZ_TYPIFIED_IMPL(TezSceneIndexedMesh, "Indexed Mesh Scene Object")

// ---- TezRenderableIndexedMesh ----

TezRenderableIndexedMesh::TezRenderableIndexedMesh(TezRef<TezIndexedMesh> mesh) : m_mesh(mesh) {}

TezRenderableIndexedMesh::~TezRenderableIndexedMesh() = default;

TezRef<TezRenderableIndexedMesh> TezRenderableIndexedMesh::Create(TezRef<TezIndexedMesh> mesh)
{
    return TezRef<TezRenderableIndexedMesh>(new TezRenderableIndexedMesh(mesh));
}

void TezRenderableIndexedMesh::SetMesh(TezRef<TezIndexedMesh> mesh)
{
    m_mesh = mesh;
    m_selection.clear();
}

bool TezRenderableIndexedMesh::IndicesInRange(TezIndexedMesh const& mesh)
{
    size_t const numVertices = mesh.GetNumVertices();
    for (unsigned int index : mesh.GetIndices())
        if (index >= numVertices)
            return false;
    return true;
}

std::vector<TezMeshVertex> TezRenderableIndexedMesh::MakeFlatVertices(TezIndexedMesh const& mesh)
{
    std::vector<TezMeshVertex> vertices(3 * mesh.GetNumTriangles());
    std::vector<TezMeshVertex> const& source = mesh.GetVertices();
    std::vector<unsigned int> const& indices = mesh.GetIndices();
    for (size_t t = 0; t < mesh.GetNumTriangles(); ++t) {
        TezVector3<float> const& p0 = source[indices[3 * t]].position;
        TezVector3<float> const& p1 = source[indices[3 * t + 1]].position;
        TezVector3<float> const& p2 = source[indices[3 * t + 2]].position;
        // TezMeshTriangle::ComputeNormal, without building a view per triangle.
        TezVector3<float> e1 = p1 - p0, e2 = p2 - p0;
        e1.Normalize();
        e2.Normalize();
        TezVector3<float> normal = e1 ^ e2;
        normal.Normalize();
        vertices[3 * t] = TezMeshVertex(p0, normal);
        vertices[3 * t + 1] = TezMeshVertex(p1, normal);
        vertices[3 * t + 2] = TezMeshVertex(p2, normal);
    }
    return vertices;
}

std::vector<unsigned int> TezRenderableIndexedMesh::MakeAdjacencyIndices(TezRef<TezIndexedMesh> mesh, bool flat)
{
    std::vector<unsigned int> adjacency;
    if (!mesh)
        return adjacency;
    size_t const numTriangles = mesh->GetNumTriangles();
    auto vertexOf = [&](size_t triangle, unsigned int corner) -> unsigned int {
        return flat ? static_cast<unsigned int>(3 * triangle + corner) : mesh->GetIndex(triangle, int(corner));
    };
    // Every edge starts as a boundary: the triangle's own opposite corner.
    adjacency.resize(6 * numTriangles);
    for (size_t t = 0; t < numTriangles; ++t)
        for (unsigned int k = 0; k < 3; ++k) {
            adjacency[6 * t + 2 * k] = vertexOf(t, k);
            adjacency[6 * t + 2 * k + 1] = vertexOf(t, (k + 2) % 3);
        }
    TezRef<TezTopologyMesh> topology = TezTopologyMesh::Create(mesh, false);
    if (!topology)
        return adjacency;
    for (size_t f = 0; f < topology->GetNumFaces(); ++f) {
        TezTopologyFace const* face = topology->GetFace(f).Get();
        size_t const t = face->GetGeometry();
        if (t >= numTriangles)
            continue;
        for (int i = 0; i < 3; ++i) {
            TezTopologyHalfEdge const* edge = face->Edge(i);
            TezTopologyHalfEdge const* mate = edge ? edge->Mate() : nullptr;
            if (!mate || !mate->Face() || mate->Face()->GetGeometry() >= numTriangles)
                continue;
            // The mate runs the other way; its face's third corner is where
            // the mate's previous half-edge starts.
            TezTopologyHalfEdge const* across = mate->Previous();
            if (!across)
                continue;
            unsigned int const k = edge->GetGeometry() % 3;
            adjacency[6 * t + 2 * k + 1] = vertexOf(mate->Face()->GetGeometry(), across->GetGeometry() % 3);
        }
    }
    return adjacency;
}

bool TezRenderableIndexedMesh::CreateBuffers()
{
    DestroyBuffers();
    if (!m_mesh || m_mesh->GetNumTriangles() == 0)
        return false;
    if (!IndicesInRange(*m_mesh)) {
        TezLogger::error("TezRenderableIndexedMesh::CreateBuffers: the mesh has indices past its %zu vertices; "
                         "nothing is drawn.\n",
                         m_mesh->GetNumVertices());
        return false;
    }
    size_t const numTriangles = m_mesh->GetNumTriangles();
    m_vertexArray.Bind();
    if (m_flatShading) {
        std::vector<TezMeshVertex> const vertices = MakeFlatVertices(*m_mesh);
        m_vertexBuffer.Upload(GL_ARRAY_BUFFER, vertices.size() * sizeof(TezMeshVertex), vertices.data());
        std::vector<unsigned int> indices(3 * numTriangles);
        std::iota(indices.begin(), indices.end(), 0u);
        m_indexBuffer.Upload(GL_ELEMENT_ARRAY_BUFFER, indices.size() * sizeof(unsigned int), indices.data());
        m_numVertices = vertices.size();
    } else {
        std::vector<TezMeshVertex> const& vertices = m_mesh->GetVertices();
        m_vertexBuffer.Upload(GL_ARRAY_BUFFER, vertices.size() * sizeof(TezMeshVertex), vertices.data());
        std::vector<unsigned int> const& indices = m_mesh->GetIndices();
        m_indexBuffer.Upload(GL_ELEMENT_ARRAY_BUFFER, 3 * numTriangles * sizeof(unsigned int), indices.data());
        m_numVertices = vertices.size();
    }
    TezGLVertexArray::SetFloatAttribute(0, 3, sizeof(TezMeshVertex), 0);
    TezGLVertexArray::SetFloatAttribute(1, 3, sizeof(TezMeshVertex), sizeof(TezVector3<float>));
    if (m_needAdjacency) {
        std::vector<unsigned int> const adjacency = MakeAdjacencyIndices(m_mesh, m_flatShading);
        m_adjacencyBuffer.Upload(GL_ELEMENT_ARRAY_BUFFER, adjacency.size() * sizeof(unsigned int), adjacency.data());
        m_numAdjacencyIndices = adjacency.size();
    }
    TezGLVertexArray::Unbind();
    m_numTriangles = numTriangles;
    UploadSelection();
    return true;
}

void TezRenderableIndexedMesh::DestroyBuffers()
{
    m_selectionBuffer.Release();
    m_adjacencyBuffer.Release();
    m_indexBuffer.Release();
    m_vertexBuffer.Release();
    m_vertexArray.Release();
    m_numVertices = m_numTriangles = m_numAdjacencyIndices = m_numSelectionIndices = 0;
}

void TezRenderableIndexedMesh::Draw()
{
    if (m_numTriangles == 0)
        return;
    m_vertexArray.Bind();
    m_indexBuffer.Bind(GL_ELEMENT_ARRAY_BUFFER);
    glDrawElements(GL_TRIANGLES, GLsizei(3 * m_numTriangles), GL_UNSIGNED_INT, nullptr);
    TezGLVertexArray::Unbind();
}

void TezRenderableIndexedMesh::DrawWithAdjacency()
{
    if (m_numTriangles == 0 || m_numAdjacencyIndices == 0)
        return;
    m_vertexArray.Bind();
    m_adjacencyBuffer.Bind(GL_ELEMENT_ARRAY_BUFFER);
    glDrawElements(GL_TRIANGLES_ADJACENCY, GLsizei(m_numAdjacencyIndices), GL_UNSIGNED_INT, nullptr);
    TezGLVertexArray::Unbind();
}

void TezRenderableIndexedMesh::DrawSelection()
{
    if (m_numTriangles == 0 || m_numSelectionIndices == 0)
        return;
    m_vertexArray.Bind();
    m_selectionBuffer.Bind(GL_ELEMENT_ARRAY_BUFFER);
    glDrawElements(GL_TRIANGLES, GLsizei(m_numSelectionIndices), GL_UNSIGNED_INT, nullptr);
    TezGLVertexArray::Unbind();
}

void TezRenderableIndexedMesh::SetSelection(std::vector<unsigned int> const& triangles)
{
    m_selection = triangles;
    if (m_numTriangles != 0)
        UploadSelection();
}

void TezRenderableIndexedMesh::UploadSelection()
{
    m_numSelectionIndices = 0;
    if (!m_mesh || m_numTriangles == 0)
        return;
    std::vector<unsigned int> indices;
    indices.reserve(3 * m_selection.size());
    for (unsigned int t : m_selection) {
        if (t >= m_numTriangles)
            continue;
        for (int k = 0; k < 3; ++k)
            indices.push_back(m_flatShading ? 3 * t + unsigned(k) : m_mesh->GetIndex(t, k));
    }
    if (indices.empty())
        return;
    // The vertex array keeps the element binding it had.
    m_vertexArray.Bind();
    m_selectionBuffer.Upload(GL_ELEMENT_ARRAY_BUFFER, indices.size() * sizeof(unsigned int), indices.data());
    TezGLVertexArray::Unbind();
    m_numSelectionIndices = indices.size();
}

// ---- TezSceneIndexedMesh ----

TezSceneIndexedMesh::TezSceneIndexedMesh() : TezSceneObject(TezEffectIndexedMesh::StaticType())
{
    SetProperty(Visible, true);
    SetProperty(Mappable, true);
    SetColor(DefaultColor());
}

TezSceneIndexedMesh::~TezSceneIndexedMesh() = default;

TezRef<TezSceneIndexedMesh> TezSceneIndexedMesh::Create(TezRef<TezIndexedMesh> mesh)
{
    return Create(TezRenderableIndexedMesh::Create(mesh));
}

TezRef<TezSceneIndexedMesh> TezSceneIndexedMesh::Create(TezRef<TezRenderableIndexedMesh> renderable)
{
    TezRef<TezSceneIndexedMesh> object(new TezSceneIndexedMesh());
    object->m_renderable = renderable ? renderable : TezRenderableIndexedMesh::Create(nullptr);
    object->m_mode = object->m_renderable->GetFlatShading() ? TezMeshModeFlat : TezMeshModeSmooth;
    object->SetProperty(NeedsBuild, true);
    return object;
}

void TezSceneIndexedMesh::SetMesh(TezRef<TezIndexedMesh> mesh)
{
    if (!m_renderable)
        m_renderable = TezRenderableIndexedMesh::Create(mesh);
    else
        m_renderable->SetMesh(mesh);
    TezSceneObject::ClearIndices();
    m_boundsValid = false;
    SetProperty(NeedsBuild, true);
}

TezRef<TezIndexedMesh> TezSceneIndexedMesh::GetMesh() const { return m_renderable ? m_renderable->GetMesh() : nullptr; }

void TezSceneIndexedMesh::SetMode(int mode)
{
    int const old = m_mode;
    m_mode = mode;
    bool const flatPair = (old == TezMeshModeFlat || old == TezMeshModeFlatEdges) &&
                          (mode == TezMeshModeFlat || mode == TezMeshModeFlatEdges);
    if (flatPair || !m_renderable)
        return;
    if (mode < TezMeshModeFlat)
        m_renderable->SetFlatShading(false);
    else if (mode < TezMeshModeWireframe)
        m_renderable->SetFlatShading(true);
    // The adjacency buffer costs a topology; it is kept only while needed.
    m_renderable->SetNeedAdjacency(mode >= TezMeshModeWireframe);
    m_renderable->SetWireframeModeEnabled(mode >= TezMeshModeWireframe);
    SetProperty(NeedsBuild, true);
}

TezRef<TezMeshIndexList> TezSceneIndexedMesh::GetIndexList() const
{
    TezRef<TezMeshIndexList> list = TezMeshIndexList::Create();
    for (uint32_t index : GetSelectedIndices())
        list->Add(index);
    return list;
}

void TezSceneIndexedMesh::SelectIndex(unsigned int index)
{
    TezSceneObject::SelectIndex(index);
    SelectionChanged();
}

void TezSceneIndexedMesh::UnselectIndex(unsigned int index)
{
    TezSceneObject::UnselectIndex(index);
    SelectionChanged();
}

void TezSceneIndexedMesh::ClearIndices()
{
    TezSceneObject::ClearIndices();
    SelectionChanged();
}

// The selection goes up with the next draw, alone: the renderable's buffers
// are touched only where the context is current, and a click must not send
// the whole mesh again.
void TezSceneIndexedMesh::SelectionChanged() { m_selectionChanged = true; }

void TezSceneIndexedMesh::UploadSelection()
{
    std::set<uint32_t> const& selected = GetSelectedIndices();
    m_renderable->SetSelection(std::vector<unsigned int>(selected.begin(), selected.end()));
    m_selectionChanged = false;
}

bool TezSceneIndexedMesh::BuildObject()
{
    if (!m_renderable)
        return false;
    UploadSelection();
    return m_renderable->CreateBuffers();
}

bool TezSceneIndexedMesh::UnbuildObject()
{
    if (m_renderable)
        m_renderable->DestroyBuffers();
    return true;
}

TezBox3<float> TezSceneIndexedMesh::GetObjectBounds()
{
    if (!m_boundsValid) {
        TezRef<TezIndexedMesh> mesh = GetMesh();
        m_bounds = mesh ? mesh->ComputeBounds() : TezBox3<float>();
        m_boundsValid = true;
    }
    return m_bounds;
}

bool TezSceneIndexedMesh::DrawObject(TezSceneDrawData const& data)
{
    if (!m_renderable || !m_renderable->HasBuffers())
        return true;
    if (m_selectionChanged)
        UploadSelection();
    unsigned const pass = data.GetEffectPass();
    bool const wireframe = m_mode >= TezMeshModeWireframe;
    bool const edges = m_mode == TezMeshModeSmoothEdges || m_mode == TezMeshModeFlatEdges;
    if (data.IsMapping()) {
        if (pass == TezEffectIndexedMesh::SurfacePass)
            m_renderable->Draw();
        return true;
    }
    GLuint const program = CurrentProgram();
    TezVector4<float> const color = IsSelected() ? GetSelectedColor() : GetColor();
    GLboolean const depthTest = glIsEnabled(GL_DEPTH_TEST);
    glEnable(GL_DEPTH_TEST);
    if (pass == TezEffectIndexedMesh::SurfacePass) {
        // Under edges the surface steps back, so that the edges win.
        if (edges || wireframe) {
            glEnable(GL_POLYGON_OFFSET_FILL);
            glPolygonOffset(1.0f, 1.0f);
        }
        if (wireframe)
            glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
        m_renderable->Draw();
        if (wireframe) {
            glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        } else if (!GetSelectedIndices().empty()) {
            GLint depthFunc = GL_LESS;
            glGetIntegerv(GL_DEPTH_FUNC, &depthFunc);
            glDepthFunc(GL_LEQUAL);
            SetUniform(program, "objectColor", TezVector4<float>(0.92f, 0.0f, 0.0f, 1.0f));
            m_renderable->DrawSelection();
            SetUniform(program, "objectColor", color);
            glDepthFunc(GLenum(depthFunc));
        }
        glPolygonOffset(0.0f, 0.0f);
        glDisable(GL_POLYGON_OFFSET_FILL);
    } else if ((pass == TezEffectIndexedMesh::EdgePass && edges) ||
               (pass == TezEffectIndexedMesh::AdjacencyEdgePass && wireframe)) {
        // Edges over the surface: tested against its depth, never written.
        TezVector4<float> const edgeColor =
            wireframe ? color : TezVector4<float>(color.x * 0.25f, color.y * 0.25f, color.z * 0.25f, 1.0f);
        SetUniform(program, "edgeColor", edgeColor);
        SetUniform(program, "boundaryColor", TezVector4<float>(0.95f, 0.15f, 0.1f, 1.0f));
        glDepthMask(GL_FALSE);
        if (wireframe)
            m_renderable->DrawWithAdjacency();
        else
            m_renderable->Draw();
        glDepthMask(GL_TRUE);
    }
    if (!depthTest)
        glDisable(GL_DEPTH_TEST);
    return true;
}
