#include "document/objects/DocIndexedMesh.h"

#include "core/Archive.h"
#include "document/objects/detail/DocObjectParts.h"
#include "mesh/IndexedMesh.h"
#include "mesh/MeshKDTree.h"
#include "mesh/TopologyMesh.h"
#include "render/objects/SceneIndexedMesh.h"
#include "render/objects/SceneMeshHole.h"
#include "render/scene/Scene.h"

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

TEZ_TYPIFIED_IMPL(TezDocIndexedMesh, "Indexed Mesh Document Object")
TEZ_DEFINE_REF_FUNCTIONS(TezDocIndexedMesh)

namespace {

[[noreturn]] void Refuse(std::string const& why) { throw std::runtime_error("TezDocIndexedMesh::Load: " + why); }

// The block's stored size must be count elements of `size` bytes.
void CheckBlock(TezArchive& archive, char const* tag, uint64_t count, uint64_t size, char const* countTag)
{
    if (count > std::numeric_limits<uint64_t>::max() / size)
        Refuse(std::string("\"") + countTag + "\" of " + std::to_string(count) + " cannot be held");
    uint64_t const stored = archive.PeekValueSize();
    if (stored != count * size)
        Refuse(std::string("\"") + tag + "\" holds " + std::to_string(stored) + " bytes where \"" + countTag + "\" " +
               std::to_string(count) + " needs " + std::to_string(count * size));
}

} // namespace

TezDocIndexedMesh::TezDocIndexedMesh() = default;

TezDocIndexedMesh::~TezDocIndexedMesh()
{
    // Scene objects may outlive this object in a scene: no dangling back reference.
    if (m_sceneObject)
        m_sceneObject->SetDocumentObject(nullptr);
    for (TezRef<TezSceneMeshHole> const& hole : m_holes)
        hole->SetDocumentObject(nullptr);
}

TezRef<TezDocIndexedMesh> TezDocIndexedMesh::Create(TezRef<TezIndexedMesh> geometry)
{
    TezRef<TezDocIndexedMesh> object(new TezDocIndexedMesh());
    object->m_geometry = geometry;
    object->CreateSceneObject();
    return object;
}

TezRef<TezDocIndexedMesh> TezDocIndexedMesh::Create(TezRef<TezTopologyMesh> topology)
{
    TezRef<TezDocIndexedMesh> object(new TezDocIndexedMesh());
    if (!topology)
        return object;
    object->m_geometry = topology->GetGeometry();
    object->CreateSceneObject();
    object->SetTopology(topology);
    return object;
}

void TezDocIndexedMesh::CreateSceneObject()
{
    m_sceneObject = nullptr;
    if (!m_geometry)
        return;
    m_sceneObject = TezSceneIndexedMesh::Create(m_geometry);
    m_sceneObject->SetColor(TezSceneIndexedMesh::DefaultColor());
    m_sceneObject->SetDocumentObject(this);
}

void TezDocIndexedMesh::SetTopology(TezRef<TezTopologyMesh> topology)
{
    if (topology && topology->GetGeometry() != m_geometry)
        throw std::runtime_error("TezDocIndexedMesh::SetTopology: the topology is of another mesh");
    m_topology = topology;
    RegenerateHoles();
}

TezRef<TezMeshKDTree> TezDocIndexedMesh::GetTree()
{
    if (!m_tree && m_geometry) {
        m_tree = TezMeshKDTree::Create(m_geometry);
        m_tree->Build();
    }
    return m_tree;
}

bool TezDocIndexedMesh::GetVisible() const
{
    return m_sceneObject && m_sceneObject->GetProperty(TezSceneObject::Visible);
}

void TezDocIndexedMesh::SetVisible(bool visible)
{
    bool const report = TezDocument::GetActiveDocument() != nullptr;
    if (report)
        Report(TezDocument::DocChanging);
    if (m_sceneObject)
        m_sceneObject->SetProperty(TezSceneObject::Visible, visible);
    for (TezRef<TezSceneMeshHole> const& hole : m_holes)
        hole->SetProperty(TezSceneObject::Visible, visible);
    if (report)
        Report(TezDocument::DocChanged);
}

TezRef<TezScene> TezDocIndexedMesh::SceneForHoles() const
{
    if (m_sceneObject && m_sceneObject->GetScene())
        return m_sceneObject->GetScene();
    TezRef<TezDocument> active = TezDocument::GetActiveDocument();
    return active ? active->GetScene() : nullptr;
}

void TezDocIndexedMesh::RemoveHoles()
{
    for (TezRef<TezSceneMeshHole> const& hole : m_holes) {
        hole->SetDocumentObject(nullptr);
        if (TezRef<TezScene> scene = hole->GetScene())
            scene->RemoveChild(hole);
    }
    m_holes.clear();
}

void TezDocIndexedMesh::RegenerateHoles()
{
    RemoveHoles();
    if (!m_topology || !m_sceneObject)
        return;
    // Holes change with the geometry: what is drawn is built anew too, and
    // triangle numbers selected before may no longer stand.
    m_sceneObject->SetMesh(m_geometry);
    // Holes join a scene only where the mesh shows; OnAdd adds them later.
    TezRef<TezScene> scene = m_sceneObject->GetScene() ? SceneForHoles() : nullptr;
    for (size_t i = 0; i < m_topology->GetNumHoles(); ++i) {
        TezRef<TezSceneMeshHole> hole =
            TezSceneMeshHole::Create(m_topology->GetHole(i), m_sceneObject->GetRenderable());
        hole->SetDocumentObject(this);
        hole->SetProperty(TezSceneObject::Visible, GetVisible());
        if (scene)
            scene->AddChild(scene->GetRoot(), hole);
        m_holes.push_back(hole);
    }
}

void TezDocIndexedMesh::OnAdd(TezRef<TezDocument> document)
{
    TezJoinDocumentScene(document, m_sceneObject);
    for (TezRef<TezSceneMeshHole> const& hole : m_holes)
        TezJoinDocumentScene(document, hole);
}

void TezDocIndexedMesh::OnRemove(TezRef<TezDocument> document)
{
    TezLeaveDocumentScene(document, m_sceneObject);
    for (TezRef<TezSceneMeshHole> const& hole : m_holes)
        TezLeaveDocumentScene(document, hole);
}

void TezDocIndexedMesh::Select(bool on)
{
    TezDocumentObject::Select(on);
    if (m_sceneObject)
        m_sceneObject->Select(on);
}

void TezDocIndexedMesh::TransformGeometry(TezMatrix44<float> const& matrix)
{
    if (!m_geometry)
        return;
    m_geometry->TransformGeometry(matrix);
    // Normals follow the inverse transpose of the linear part.
    TezMatrix44<float> normalMatrix = matrix;
    normalMatrix[3] = TezVector4<float>(0, 0, 0, 1);
    normalMatrix = normalMatrix.Inverse().Transpose();
    for (TezMeshVertex& v : m_geometry->GetVertices()) {
        TezVector4<float> const n = normalMatrix * TezVector4<float>(v.normal.x, v.normal.y, v.normal.z, 0.0f);
        v.normal = TezVector3<float>(n.x, n.y, n.z);
        v.normal.Normalize();
    }
    m_tree = nullptr;
    if (m_sceneObject)
        m_sceneObject->SetMesh(m_geometry);
    RegenerateHoles();
}

void TezDocIndexedMesh::Save(TezRef<TezArchive> archive)
{
    archive->WriteStartSection(TypeName().c_str());
    TezDocumentObject::Save(archive);
    size_t const numVertices = m_geometry ? m_geometry->GetNumVertices() : 0;
    size_t const numTriangles = m_geometry ? m_geometry->GetNumTriangles() : 0;
    archive->WriteSizet("numVertices", numVertices);
    archive->WriteSizet("numTriangles", numTriangles);
    archive->WriteBinary("vertices", numVertices ? m_geometry->GetVertices().data() : nullptr,
                         numVertices * sizeof(TezMeshVertex));
    archive->WriteBinary("indexes", numTriangles ? m_geometry->GetIndices().data() : nullptr,
                         numTriangles * 3 * sizeof(unsigned int));
    archive->WriteBool("visible", GetVisible());
    archive->WriteEndSection();
}

void TezDocIndexedMesh::Load(TezRef<TezArchive> archive)
{
    uint64_t numVertices = 0;
    uint64_t numTriangles = 0;
    bool visible = true;
    bool haveIndexes = false;
    TezRef<TezIndexedMesh> geometry;
    int sections = 0;
    for (;;) {
        TezString const tag = archive->ReadTag();
        if (tag.Length() == 0) {
            Refuse("the archive ends inside the mesh");
        } else if (TezArchiveTagIs(tag, "sectionStart")) {
            TezReadObjectSection(archive, *this, sections, "TezDocIndexedMesh::Load", "a mesh");
        } else if (TezArchiveTagIs(tag, "sectionEnd")) {
            archive->ReadEndSection();
            break;
        } else if (TezArchiveTagIs(tag, "numVertices")) {
            numVertices = archive->ReadSizet();
        } else if (TezArchiveTagIs(tag, "numTriangles")) {
            numTriangles = archive->ReadSizet();
        } else if (TezArchiveTagIs(tag, "vertices")) {
            CheckBlock(*archive, "vertices", numVertices, sizeof(TezMeshVertex), "numVertices");
            geometry = TezIndexedMesh::CreateEmpty();
            geometry->GetVertices().resize(numVertices);
            archive->ReadBinary(geometry->GetVertices().data(), numVertices * sizeof(TezMeshVertex));
        } else if (TezArchiveTagIs(tag, "indexes")) {
            CheckBlock(*archive, "indexes", numTriangles, 3 * sizeof(unsigned int), "numTriangles");
            if (numTriangles == 0) {
                archive->ReadBinary(nullptr, 0);
                continue;
            }
            if (!geometry)
                Refuse("\"indexes\" stands before \"vertices\"");
            geometry->GetIndices().resize(3 * numTriangles);
            archive->ReadBinary(geometry->GetIndices().data(), numTriangles * 3 * sizeof(unsigned int));
            haveIndexes = true;
        } else if (TezArchiveTagIs(tag, "visible")) {
            visible = archive->ReadBool();
        } else {
            archive->SkipUnknownTag();
        }
    }
    if (geometry) {
        if (numTriangles != 0 && !haveIndexes)
            Refuse(std::to_string(numTriangles) + " triangles without their \"indexes\"");
        if (geometry->GetNumVertices() != numVertices)
            Refuse("\"numVertices\" changed after \"vertices\"");
        if (geometry->GetNumTriangles() != numTriangles)
            Refuse("\"numTriangles\" changed after \"indexes\"");
        for (unsigned int index : geometry->GetIndices())
            if (index >= numVertices)
                Refuse("index " + std::to_string(index) + " past the " + std::to_string(numVertices) + " vertices");
    }
    RemoveHoles();
    if (m_sceneObject)
        m_sceneObject->SetDocumentObject(nullptr);
    m_geometry = geometry;
    m_topology = nullptr;
    m_tree = nullptr;
    CreateSceneObject();
    if (m_sceneObject)
        m_sceneObject->SetProperty(TezSceneObject::Visible, visible);
}
