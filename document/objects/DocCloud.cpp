#include "document/objects/DocCloud.h"

#include "core/Archive.h"
#include "document/objects/detail/DocObjectParts.h"
#include "render/objects/SceneVoxelCloud.h"
#include "render/scene/Scene.h"
#include "volume/VoxelCloud.h"

#include <cstdint>
#include <stdexcept>
#include <string>

TEZ_TYPIFIED_IMPL(TezDocCloud, "Point Cloud Document Object")
TEZ_DEFINE_REF_FUNCTIONS(TezDocCloud)

namespace {

[[noreturn]] void Refuse(std::string const& why) { throw std::runtime_error("TezDocCloud::Load: " + why); }

TezVector4<float> const kDefaultColor(0.3f, 0.85f, 0.4f, 1.0f);

} // namespace

TezDocCloud::TezDocCloud() = default;

TezDocCloud::~TezDocCloud()
{
    if (m_sceneObject)
        m_sceneObject->SetDocumentObject(nullptr);
}

TezRef<TezDocCloud> TezDocCloud::Create(TezRef<TezPointCloud> cloud)
{
    TezRef<TezDocCloud> object(new TezDocCloud());
    object->m_cloud = cloud;
    object->CreateSceneObject(kDefaultColor, true);
    return object;
}

void TezDocCloud::CreateSceneObject(TezVector4<float> const& color, bool visible)
{
    if (m_sceneObject)
        m_sceneObject->SetDocumentObject(nullptr);
    m_sceneObject = nullptr;
    if (!m_cloud)
        return;
    m_sceneObject = TezScenePointCloud::Create(m_cloud);
    m_sceneObject->SetColor(color);
    m_sceneObject->SetProperty(TezSceneObject::Visible, visible);
    m_sceneObject->SetDocumentObject(this);
}

TezMatrix44<float> TezDocCloud::GetTransform() const
{
    return m_sceneObject ? m_sceneObject->GetTransform() : TezMatrix44<float>();
}

void TezDocCloud::SetTransform(TezMatrix44<float> const& transform)
{
    if (m_sceneObject)
        m_sceneObject->SetTransform(transform);
}

bool TezDocCloud::GetVisible() const { return m_sceneObject && m_sceneObject->GetProperty(TezSceneObject::Visible); }

void TezDocCloud::SetVisible(bool visible)
{
    bool const report = TezDocument::GetActiveDocument() != nullptr;
    if (report)
        Report(TezDocument::DocChanging);
    if (m_sceneObject)
        m_sceneObject->SetProperty(TezSceneObject::Visible, visible);
    if (report)
        Report(TezDocument::DocChanged);
}

void TezDocCloud::OnAdd(TezRef<TezDocument> document) { TezJoinDocumentScene(document, m_sceneObject); }

void TezDocCloud::OnRemove(TezRef<TezDocument> document) { TezLeaveDocumentScene(document, m_sceneObject); }

void TezDocCloud::Save(TezRef<TezArchive> archive)
{
    archive->WriteStartSection(TypeName().c_str());
    TezDocumentObject::Save(archive);
    size_t const numPoints = m_cloud ? m_cloud->GetNumPoints() : 0;
    archive->WriteSizet("numPoints", numPoints);
    archive->WriteBinary("points", numPoints ? m_cloud->GetPoints().data() : nullptr,
                         numPoints * sizeof(TezVector3<float>));
    TezVector4<float> const color = m_sceneObject ? m_sceneObject->GetColor() : kDefaultColor;
    archive->WriteBinary("color", &color.x, sizeof(float) * 4);
    archive->WriteBool("visible", GetVisible());
    archive->WriteEndSection();
}

void TezDocCloud::Load(TezRef<TezArchive> archive)
{
    uint64_t numPoints = 0;
    TezRef<TezPointCloud> cloud;
    TezVector4<float> color = kDefaultColor;
    bool visible = true;
    int sections = 0;
    for (;;) {
        TezString const tag = archive->ReadTag();
        if (tag.Length() == 0) {
            Refuse("the archive ends inside the cloud");
        } else if (TezArchiveTagIs(tag, "sectionStart")) {
            TezReadObjectSection(archive, *this, sections, "TezDocCloud::Load", "a point cloud");
        } else if (TezArchiveTagIs(tag, "sectionEnd")) {
            archive->ReadEndSection();
            break;
        } else if (TezArchiveTagIs(tag, "numPoints")) {
            numPoints = archive->ReadSizet();
        } else if (TezArchiveTagIs(tag, "points")) {
            uint64_t const size = sizeof(TezVector3<float>);
            uint64_t const stored = archive->PeekValueSize();
            if (numPoints > UINT64_MAX / size || stored != numPoints * size)
                Refuse("\"points\" holds " + std::to_string(stored) + " bytes where \"numPoints\" " +
                       std::to_string(numPoints) + " needs " + std::to_string(numPoints * size));
            cloud = TezPointCloud::CreateEmpty();
            cloud->Resize(numPoints);
            archive->ReadBinary(numPoints ? cloud->GetPoints().data() : nullptr, numPoints * size);
        } else if (TezArchiveTagIs(tag, "color")) {
            archive->ReadBinary(&color.x, sizeof(float) * 4);
        } else if (TezArchiveTagIs(tag, "visible")) {
            visible = archive->ReadBool();
        } else {
            archive->SkipUnknownTag();
        }
    }
    if (cloud && cloud->GetNumPoints() != numPoints)
        Refuse("\"numPoints\" changed after \"points\"");
    m_cloud = cloud;
    CreateSceneObject(color, visible);
}
