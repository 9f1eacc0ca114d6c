#pragma once
// TezHostDocument: the tez program's document, a list of document objects
// written to and read from one archive file (extension mvne).
//
// The file is one section "Morvane Document" holding "version", "objectCount"
// and, per object in list order, an object record ("object", through
// WriteObject, the records numbered in the order written rather than by the
// process's ids) followed by the object's own Save. The same content always
// gives the same bytes, so a document opened and saved again is unchanged. Read() is the loading loop: tags without
// regard to case, unknown tags and sections skipped; records of unknown object kinds are skipped with a warning.
// Save(path) throws std::runtime_error when the file cannot be written; on success the document takes that name and is
// no longer modified.

#include "document/Document.h"
#include "document/DocumentObject.h"

#include <vector>

class TezHostDocument : public TezDocument
{
public:
    static int const FileVersion = 1;
    static char const* const SectionName; // "Morvane Document"

    static TezRef<TezHostDocument> Create();
    ~TezHostDocument() override;

    using TezDocument::Save;
    void Save(TezString const& fileName) override;
    // Replaces the objects by the file's; false (and the objects unchanged)
    // when the file cannot be opened or is not a document. The reason is
    // logged at error level. Mesh and point files go to Import.
    bool Read(TezString const& fileName);
    // A mesh file (.stl, .obj, .ply) becomes one TezDocIndexedMesh, a point
    // file (.txt, "x y z" lines) one TezDocCloud, named after the file, in
    // place of the objects held. The document keeps no file name (Save()
    // asks for one) and counts as modified. False, objects unchanged, when
    // the file gives no mesh or no point.
    bool Import(TezString const& fileName);
    // By the last four characters of the name, in any case.
    static bool IsImportable(TezString const& fileName);

    // Adds at the end and calls OnAdd; false for null or an object already held.
    bool AddObject(TezRef<TezDocumentObject> object);
    // Calls OnRemove; false when the object is not held.
    bool RemoveObject(TezRef<TezDocumentObject> object);
    void RemoveAllObjects();
    std::vector<TezRef<TezDocumentObject>> const& GetObjects() const { return m_objects; }

protected:
    TezHostDocument() = default;

private:
    std::vector<TezRef<TezDocumentObject>> m_objects;
};
