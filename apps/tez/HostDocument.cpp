#include "tez/HostDocument.h"

#include "core/Archive.h"
#include "core/Logger.h"
#include "document/objects/DocCloud.h"
#include "document/objects/DocIndexedMesh.h"
#include "mesh/IndexedMesh.h"
#include "volume/VoxelCloud.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

char const* const TezHostDocument::SectionName = "Morvane Document";

namespace {

bool Is(TezString const& tag, char const* name) { return tag.CompareNoCase(TezString(name)) == 0; }

// The last four characters, in any case.
bool HasExtension(TezString const& name, char const* extension)
{
    size_t const length = name.Length();
    return length >= 4 && TezString(name.c_str() + length - 4).CompareNoCase(TezString(extension)) == 0;
}

// The file name without its folders and extension.
TezString BaseName(TezString const& path)
{
    std::string name(path.c_str());
    size_t const slash = name.find_last_of("/\\");
    if (slash != std::string::npos)
        name = name.substr(slash + 1);
    size_t const dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0)
        name = name.substr(0, dot);
    return TezString(name.c_str());
}

} // namespace

TezRef<TezHostDocument> TezHostDocument::Create() { return TezRef<TezHostDocument>(new TezHostDocument()); }

TezHostDocument::~TezHostDocument()
{
    // No OnRemove here: a reference to a dying document must not be handed out.
    m_objects.clear();
}

bool TezHostDocument::AddObject(TezRef<TezDocumentObject> object)
{
    if (!object || std::find(m_objects.begin(), m_objects.end(), object) != m_objects.end())
        return false;
    m_objects.push_back(object);
    object->OnAdd(TezRef<TezDocument>(this));
    return true;
}

bool TezHostDocument::RemoveObject(TezRef<TezDocumentObject> object)
{
    auto found = std::find(m_objects.begin(), m_objects.end(), object);
    if (found == m_objects.end())
        return false;
    m_objects.erase(found);
    object->OnRemove(TezRef<TezDocument>(this));
    return true;
}

void TezHostDocument::RemoveAllObjects()
{
    while (!m_objects.empty())
        RemoveObject(m_objects.back());
}

void TezHostDocument::Save(TezString const& fileName)
{
    TezRef<TezArchive> archive = TezArchive::Open(fileName.c_str(), TezArchive::Write);
    if (!archive)
        throw std::runtime_error(std::string("Unable to write Morvane document ") + fileName.c_str() + ".");
    // Opened again and saved, a document gives the same bytes.
    archive->SetNumberObjectsInOrder(true);
    archive->WriteStartSection(SectionName);
    archive->WriteInt("version", FileVersion);
    archive->WriteInt("objectCount", static_cast<int32_t>(m_objects.size()));
    for (size_t i = 0; i < m_objects.size(); ++i) {
        archive->WriteObject("object", m_objects[i]);
        m_objects[i]->Save(archive);
    }
    archive->WriteEndSection();
    archive->Flush();
    SetFileName(fileName);
    SetModified(false);
}

bool TezHostDocument::IsImportable(TezString const& fileName)
{
    return HasExtension(fileName, ".stl") || HasExtension(fileName, ".obj") || HasExtension(fileName, ".ply") ||
           HasExtension(fileName, ".txt");
}

bool TezHostDocument::Import(TezString const& fileName)
{
    TezRef<TezDocumentObject> object;
    if (HasExtension(fileName, ".txt")) {
        TezRef<TezPointCloud> cloud = TezPointCloud::ReadFromFile(fileName);
        if (cloud && cloud->GetNumPoints() > 0)
            object = TezDocCloud::Create(cloud);
    } else if (TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromFile(fileName)) {
        object = TezDocIndexedMesh::Create(mesh);
    }
    if (!object) {
        TezLogger::error("Cannot read %s as a mesh or a point file.\n", fileName.c_str());
        return false;
    }
    object->SetName(BaseName(fileName));
    RemoveAllObjects();
    AddObject(object);
    // Not a document file: saving asks for a name rather than writing over it.
    SetFileName(TezString(""));
    SetModified(true);
    return true;
}

bool TezHostDocument::Read(TezString const& fileName)
{
    if (IsImportable(fileName))
        return Import(fileName);
    char const* name = fileName.c_str();
    TezRef<TezArchive> archive = TezArchive::Open(name, TezArchive::Read);
    if (!archive) {
        TezLogger::error("Cannot open Morvane document %s: %s.\n", name, std::strerror(errno));
        return false;
    }
    // Section names are stored with their blanks collapsed.
    TezString section(SectionName);
    section.CollapseWhitespace();
    std::vector<TezRef<TezDocumentObject>> objects;
    try {
        if (!Is(archive->ReadTag(), "sectionStart") || archive->ReadStartSection(0).CompareNoCase(section) != 0) {
            TezLogger::error("%s is not a Morvane document.\n", name);
            return false;
        }
        int version = 0;
        for (;;) {
            TezString tag = archive->ReadTag();
            if (tag.Length() == 0) {
                TezLogger::error("Morvane document %s ends early.\n", name);
                return false;
            }
            if (Is(tag, "version")) {
                version = archive->ReadInt();
                if (version > FileVersion)
                    TezLogger::warn("Morvane document %s has version %d; this program knows %d.\n", name, version,
                                    FileVersion);
            } else if (Is(tag, "object")) {
                TezRef<TezDocumentObject> object(archive->ReadObject());
                if (object) {
                    object->Load(archive);
                    objects.push_back(object);
                } else {
                    // Its sections follow the record and are skipped below.
                    TezLogger::warn("Morvane document %s holds an object of an unknown kind; skipped.\n", name);
                }
            } else if (Is(tag, "sectionStart")) {
                archive->ReadStartSection(1);
            } else if (Is(tag, "sectionEnd")) {
                archive->ReadEndSection();
                break;
            } else {
                archive->SkipUnknownTag();
            }
        }
    } catch (std::exception const& e) {
        TezLogger::error("Morvane document %s cannot be read: %s\n", name, e.what());
        return false;
    }
    RemoveAllObjects();
    for (TezRef<TezDocumentObject> const& object : objects)
        AddObject(object);
    SetFileName(fileName);
    SetModified(false);
    return true;
}
