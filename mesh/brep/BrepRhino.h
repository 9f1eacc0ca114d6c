#pragma once
// TezBrepRhino and TezBrepFaceRhino: the B-rep classes over opennurbs. The
// library runs in a helper process (the rhino3dm package under Node.js, see
// media/brep/bridge.js), which these two classes alone talk to: a model is
// held as the bytes of its 3DM file, beside the geometry that the bridge
// handed back for it.
//
// rhino3dm does not expose trims and loops, so a face's loops are rebuilt
// here from its edges (TezBrepFaceTrims).
//
// Breps come from the file's brep objects and from its extrusions and
// surfaces (which opennurbs turns into breps), plus, for each instance
// reference, the breps of its definition placed by its transform; objects
// inside instance definitions are not listed on their own.
//
// Reading logs through TezLogger and answers null on failure, with the
// reason in GetLastError. The bridge's own failures (a missing node, a
// bridge that hangs and is killed) are reported the same way.

#include "mesh/brep/Brep.h"
#include "mesh/brep/BrepModel.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezBrepRhino)
TEZ_DECLARE_REF_FUNCTIONS(TezBrepFaceRhino)

class TEZ_API TezBrepRhino : public TezBrep
{
public:
    // Reads a 3DM file; null (and the reason in GetLastError) when the file
    // cannot be opened or is not a 3DM file the bridge can read.
    static TezRef<TezBrep> ReadFromFile(TezString const& path);
    // The same from the bytes of a file.
    static TezRef<TezBrepRhino> CreateFromBytes(std::vector<uint8_t> const& bytes);
    // An empty model, to be filled by Load.
    static TezRef<TezBrepRhino> CreateEmpty();
    // The reason for the last failed read or write; reading it clears it.
    static TezString GetLastError();

    // A built-in model as 3DM bytes of the given file version (0: the
    // newest): "box" (2 x 3 x 4 at the origin), "pipe" (a tube of radii 2
    // and 1, 3 high), "patch" (a plane trimmed by a closed curve),
    // "sphere", "mixed" (box, pipe and patch beside a line and a point),
    // "instances" (a unit box in an instance definition, referenced at
    // (5, 0, 0) and (0, 5, 0)),
    // "many:N" (boxes and tubes up to N faces). Throws std::runtime_error
    // when the bridge fails.
    static std::vector<uint8_t> MakeSampleFile(std::string const& name, int version);
    // 3DM bytes written again as another file version. Throws like
    // MakeSampleFile.
    static std::vector<uint8_t> ConvertFile(std::vector<uint8_t> const& bytes, int version);

    ~TezBrepRhino() override;

    TezBox3<float> ComputeBounds() override;
    TezRef<TezBrep> Copy() override;
    // Writes the model as a 3DM file of the newest version.
    bool Save(TezString const& path) override;
    void Save(TezRef<TezArchive> archive) override;
    void Load(TezRef<TezArchive> archive) override;
    void MakeFaceList(std::vector<TezRef<TezBrepFace>>& faces) override;
    void TessellateEdges(std::vector<std::vector<TezVector3<float>>>& polylines) override;
    void GetVertexPoints(std::vector<TezVector3<float>>& points) override;

    // The 3DM bytes as read (or as loaded from an archive).
    std::vector<uint8_t> const& GetBytes() const { return m_bytes; }
    TezBrepModel const& GetModel() const { return *m_model; }
    int GetNumFaces() const;
    int GetNumEdges() const;

protected:
    TezBrepRhino();

private:
    bool Decode(std::vector<uint8_t> const& bytes);

    std::vector<uint8_t> m_bytes;
    std::shared_ptr<TezBrepModel> m_model;
};

class TEZ_API TezBrepFaceRhino : public TezBrepFace
{
public:
    // Face `face` of brep `brep` of the model, which the face keeps alive.
    static TezRef<TezBrepFaceRhino> Create(std::shared_ptr<TezBrepModel> model, int brep, int face);
    ~TezBrepFaceRhino() override;

    TezBox3<float> ComputeBounds() override;
    void TessellateLoops(std::vector<TezBrepLoop>& loops) override;
    void MakeSurfaceGrid(int& nu, int& nv, std::vector<TezBrepFacePoint>& points) override;
    void Tessellate(TezBrepFaceMesh& mesh) override;

    int GetBrepIndex() const { return m_brep; }
    int GetFaceIndex() const { return m_face; }
    bool IsReversed() const;

protected:
    TezBrepFaceRhino(std::shared_ptr<TezBrepModel> model, int brep, int face);

private:
    std::vector<std::vector<TezBrepTrimPoint>> const& Trims();

    std::shared_ptr<TezBrepModel> m_model;
    int m_brep;
    int m_face;
    bool m_trimsMade = false;
    std::vector<std::vector<TezBrepTrimPoint>> m_trims;
    // The face's mesh, made once: the bounds, the drawing and the export
    // all ask for it.
    bool m_meshMade = false;
    TezBrepFaceMesh m_mesh;
};
