#include "document/objects/DocCubeVolume.h"

#include "document/objects/detail/DocObjectParts.h"
#include "render/objects/SceneCubeVolume.h"
#include "render/objects/SceneVoxelOctree.h"
#include "render/scene/Scene.h"
#include "volume/CubeVolume.h"
#include "volume/ImageStack.h"
#include "volume/VolumeStatistics.h"
#include "volume/VoxelOctree.h"

#include <stdexcept>

TEZ_TYPIFIED_IMPL(TezDocCubeVolume, "Cube Volume Document Object")
TEZ_DEFINE_REF_FUNCTIONS(TezDocCubeVolume)

namespace {

void RefuseType(char const* where, int type)
{
    throw std::runtime_error(std::string(where) + ": volume type " + std::to_string(type) +
                             " is neither 0 (cube volume) nor 1 (voxel octree)");
}

TezVector4<float> const kDefaultColour(0.46666667f, 0.53333336f, 0.6f, 0.6f);

} // namespace

TezDocCubeVolume::TezDocCubeVolume() { CreateTransferFunction(); }

TezDocCubeVolume::~TezDocCubeVolume() = default;

TezRef<TezDocCubeVolume> TezDocCubeVolume::Create(TezRef<TezImageStack> imageStack, double voxelSize, int bitsPerPixel,
                                                  int volumeType)
{
    if (volumeType != CubeVolumeType && volumeType != VoxelOctreeType)
        RefuseType("TezDocCubeVolume::Create", volumeType);
    TezRef<TezDocCubeVolume> volume(new TezDocCubeVolume());
    volume->m_imageStack = imageStack;
    volume->m_voxelSize = voxelSize;
    volume->m_bitsPerPixel = bitsPerPixel;
    volume->CreateCubeVolume(volumeType);
    return volume;
}

TezRef<TezDocCubeVolume> TezDocCubeVolume::Create(TezRef<TezVoxelOctree> octree)
{
    if (!octree)
        throw std::runtime_error("TezDocCubeVolume::Create: null octree");
    TezRef<TezDocCubeVolume> volume(new TezDocCubeVolume());
    volume->m_voxelSize = octree->GetVoxelSize();
    volume->m_bitsPerPixel = octree->GetBitsPerPixel();
    volume->m_histogram = octree->GetHistogram();
    volume->m_voxelOctree = octree;
    volume->MakeSceneObject();
    return volume;
}

void TezDocCubeVolume::CreateTransferFunction()
{
    m_transferFunction = {{0.0f, 0.0f}, {0.05882353f, 0.0f}, {1.0f, 1.0f}};
}

void TezDocCubeVolume::CreateCubeVolume(int type)
{
    if (type != CubeVolumeType && type != VoxelOctreeType)
        RefuseType("TezDocCubeVolume::CreateCubeVolume", type);
    m_sceneObject = nullptr;
    m_cubeVolume = nullptr;
    m_voxelOctree = nullptr;
    if (type == CubeVolumeType) {
        // A stack that gives nothing leaves nothing to draw.
        if (m_imageStack && m_imageStack->IsValid())
            m_cubeVolume = TezCubeVolume::ReadFromImageStack(m_imageStack, float(m_voxelSize));
        if (m_cubeVolume && m_histogram.empty() && m_cubeVolume->VoxelCount() > 0) {
            uint32_t counts[256] = {0};
            TezVolumeStatistics::Instance().ComputeHistogram(*m_cubeVolume, counts);
            double const scale = 1.0 / double(m_cubeVolume->VoxelCount());
            m_histogram.resize(256);
            for (int i = 0; i < 256; ++i)
                m_histogram[size_t(i)] = float(counts[i] * scale);
        }
    } else {
        m_voxelOctree =
            TezVoxelOctree::CreateFromVolumeData(TezString(""), m_imageStack, m_voxelSize, m_bitsPerPixel, 512, 2048);
        if (m_voxelOctree && m_histogram.empty())
            m_histogram = m_voxelOctree->GetHistogram();
    }
    MakeSceneObject();
}

// The scene object of the volume held, told its owner and given the
// document's transfer function. A failed build leaves none: there is
// nothing to draw.
void TezDocCubeVolume::MakeSceneObject()
{
    m_sceneObject = nullptr;
    if (m_voxelOctree)
        m_sceneObject = TezSceneVoxelOctree::Create(m_voxelOctree);
    else if (m_cubeVolume)
        m_sceneObject = TezSceneCubeVolume::Create(m_cubeVolume);
    if (!m_sceneObject)
        return;
    m_sceneObject->SetColor(kDefaultColour);
    m_sceneObject->SetDocumentObject(this);
    ApplyTransferFunction();
}

void TezDocCubeVolume::ApplyTransferFunction()
{
    if (auto* octree = dynamic_cast<TezSceneVoxelOctree*>(m_sceneObject.Get()))
        octree->SetTransferFunction(m_transferFunction);
    else if (auto* cube = dynamic_cast<TezSceneCubeVolume*>(m_sceneObject.Get()))
        cube->SetTransferFunction(m_transferFunction);
}

void TezDocCubeVolume::OnAdd(TezRef<TezDocument> document) { TezJoinDocumentScene(document, m_sceneObject); }

void TezDocCubeVolume::OnRemove(TezRef<TezDocument> document)
{
    TezRef<TezScene> scene = document ? document->GetScene() : nullptr;
    if (scene && m_sceneObject)
        scene->RemoveChild(m_sceneObject);
}

bool TezDocCubeVolume::CanConvertVolumeType() const { return m_imageStack && m_imageStack->IsValid(); }

void TezDocCubeVolume::ConvertTo(int type)
{
    if (!CanConvertVolumeType() || type == GetVolumeType())
        return;
    if (type != CubeVolumeType && type != VoxelOctreeType)
        RefuseType("TezDocCubeVolume::ConvertTo", type);
    TezRef<TezSceneObject> old = m_sceneObject;
    TezRef<TezScene> scene = old ? old->GetScene() : nullptr;
    CreateCubeVolume(type);
    // The new object stands where the old one stood and looks the same.
    if (old && m_sceneObject) {
        m_sceneObject->SetTransform(old->GetTransform());
        m_sceneObject->SetColor(old->GetColor());
        m_sceneObject->SetProperty(TezSceneObject::Visible, old->GetProperty(TezSceneObject::Visible));
    }
    if (scene) {
        scene->RemoveChild(old);
        if (m_sceneObject)
            scene->AddChild(scene->GetRoot(), m_sceneObject);
    }
}

void TezDocCubeVolume::SetTransferFunction(std::vector<TezVector2<float>> const& points)
{
    if (points.size() < 2)
        return;
    m_transferFunction = points;
    m_transferFunction.front().x = 0.0f;
    m_transferFunction.back().x = 1.0f;
    ApplyTransferFunction();
}

TezVector3<float> TezDocCubeVolume::GetDimensions() const
{
    if (m_voxelOctree)
        return m_voxelOctree->GetDimensions();
    if (m_cubeVolume)
        return m_cubeVolume->GetDimensions();
    return TezVector3<float>(0, 0, 0);
}

TezVector3<int> TezDocCubeVolume::GetDimensionsInVoxels() const
{
    if (m_voxelOctree)
        return m_voxelOctree->GetDimensionsInVoxels();
    if (m_cubeVolume)
        return m_cubeVolume->Dimensions();
    return TezVector3<int>(0, 0, 0);
}

void TezDocCubeVolume::SetVoxelSize(float size)
{
    m_voxelSize = size;
    if (m_voxelOctree)
        m_voxelOctree->SetVoxelSize(size);
    if (m_cubeVolume)
        m_cubeVolume->SetVoxelSize(size);
}

TezMatrix44<float> TezDocCubeVolume::GetTransform() const
{
    return m_sceneObject ? m_sceneObject->GetTransform() : TezMatrix44<float>();
}

void TezDocCubeVolume::SetTransform(TezMatrix44<float> const& transform)
{
    if (m_sceneObject)
        m_sceneObject->SetTransform(transform);
}

bool TezDocCubeVolume::GetVisible() const
{
    return m_sceneObject && m_sceneObject->GetProperty(TezSceneObject::Visible);
}

void TezDocCubeVolume::SetVisible(bool visible)
{
    // Without an open document there is nobody to tell.
    bool const report = TezDocument::GetActiveDocument() != nullptr;
    if (report)
        Report(TezDocument::DocChanging);
    if (m_sceneObject)
        m_sceneObject->SetProperty(TezSceneObject::Visible, visible);
    if (report)
        Report(TezDocument::DocChanged);
}

void TezDocCubeVolume::Save(TezRef<TezArchive> archive)
{
    archive->WriteStartSection(TypeName().c_str());
    TezDocumentObject::Save(archive);
    TezVector4<float> const color = m_sceneObject ? m_sceneObject->GetColor() : TezVector4<float>(0, 0, 0, 0);
    archive->WriteBinary("color", &color.x, sizeof(float) * 4);
    archive->WriteBool("visible", GetVisible());
    archive->WriteDouble("voxelSize", m_voxelSize);
    archive->WriteInt("bpp", m_bitsPerPixel);
    archive->WriteSizet("histogramSize", m_histogram.size());
    archive->WriteBinary("", m_histogram.data(), m_histogram.size() * sizeof(float));
    archive->WriteSizet("transferFunctionSize", m_transferFunction.size());
    archive->WriteBinary("", m_transferFunction.data(), m_transferFunction.size() * sizeof(float) * 2);
    archive->WriteObject("cubeVolume", m_cubeVolume);
    if (m_cubeVolume)
        m_cubeVolume->Save(archive);
    archive->WriteObject("octree", m_voxelOctree);
    if (m_voxelOctree)
        m_voxelOctree->Save(archive);
    archive->WriteObject("imageStack", m_imageStack);
    if (m_imageStack)
        m_imageStack->Save(archive);
    // Where the volume stands in the world; readers that do not know the tag
    // skip it.
    TezMatrix44<float> const transform = GetTransform();
    float values[16];
    transform.Array(values);
    archive->WriteBinary("transform", values, sizeof(values));
    archive->WriteEndSection();
}

void TezDocCubeVolume::Load(TezRef<TezArchive> archive)
{
    TezVector4<float> color = kDefaultColour;
    bool visible = true;
    float transform[16];
    TezMatrix44<float>().Array(transform);
    int sections = 0;
    for (;;) {
        TezString const tag = archive->ReadTag();
        if (TezArchiveTagIs(tag, "sectionStart")) {
            TezReadObjectSection(archive, *this, sections, "TezDocCubeVolume::Load", "a volume");
        } else if (TezArchiveTagIs(tag, "sectionEnd")) {
            archive->ReadEndSection();
            break;
        } else if (TezArchiveTagIs(tag, "color")) {
            archive->ReadBinary(&color.x, sizeof(float) * 4);
        } else if (TezArchiveTagIs(tag, "transform")) {
            archive->ReadBinary(transform, sizeof(transform));
        } else if (TezArchiveTagIs(tag, "visible")) {
            visible = archive->ReadBool();
        } else if (TezArchiveTagIs(tag, "voxelSize")) {
            m_voxelSize = archive->ReadDouble();
        } else if (TezArchiveTagIs(tag, "bpp")) {
            m_bitsPerPixel = archive->ReadInt();
        } else if (TezArchiveTagIs(tag, "histogramSize")) {
            // The unnamed values follow their counts at once; an empty tag
            // cannot be left pending, so they are read here.
            m_histogram.assign(archive->ReadSizet(), 0.0f);
            archive->ReadBinary(m_histogram.data(), m_histogram.size() * sizeof(float));
        } else if (TezArchiveTagIs(tag, "transferFunctionSize")) {
            m_transferFunction.assign(archive->ReadSizet(), TezVector2<float>(0, 0));
            archive->ReadBinary(m_transferFunction.data(), m_transferFunction.size() * sizeof(float) * 2);
        } else if (TezArchiveTagIs(tag, "cubeVolume")) {
            m_cubeVolume = TezRef<TezCubeVolume>(dynamic_cast<TezCubeVolume*>(archive->ReadObject().Get()));
            if (m_cubeVolume)
                m_cubeVolume->Load(archive);
        } else if (TezArchiveTagIs(tag, "octree")) {
            m_voxelOctree = TezRef<TezVoxelOctree>(dynamic_cast<TezVoxelOctree*>(archive->ReadObject().Get()));
            if (m_voxelOctree)
                m_voxelOctree->Load(archive);
        } else if (TezArchiveTagIs(tag, "imageStack")) {
            m_imageStack = TezRef<TezImageStack>(dynamic_cast<TezImageStack*>(archive->ReadObject().Get()));
            if (m_imageStack)
                m_imageStack->Load(archive);
        } else {
            archive->SkipUnknownTag();
        }
    }
    MakeSceneObject();
    if (m_sceneObject) {
        m_sceneObject->SetColor(color);
        m_sceneObject->SetProperty(TezSceneObject::Visible, visible);
        TezMatrix44<float> matrix;
        matrix.FromArray(transform);
        m_sceneObject->SetTransform(matrix);
    }
}
