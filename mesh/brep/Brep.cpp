#include "mesh/brep/Brep.h"

#include "core/Logger.h"
#include "mesh/IndexedMesh.h"
#include "mesh/brep/BrepRhino.h"

#include <cstring>
#include <stdexcept>
#include <unordered_map>

TEZ_DEFINE_REF_FUNCTIONS(TezBrep)
TEZ_DEFINE_REF_FUNCTIONS(TezBrepFace)

TezRef<TezBrep> TezBrep::ReadFromFile(TezString const& path) { return TezBrepRhino::ReadFromFile(path); }

namespace {

// Bit patterns of a position, with -0 read as +0, as the key of welding.
struct PositionKey
{
    uint32_t bits[3];
    bool operator==(PositionKey const& other) const { return std::memcmp(bits, other.bits, sizeof(bits)) == 0; }
};

struct PositionHash
{
    size_t operator()(PositionKey const& key) const
    {
        uint64_t h = 1469598103934665603ull;
        for (uint32_t b : key.bits)
            h = (h ^ b) * 1099511628211ull;
        return static_cast<size_t>(h);
    }
};

PositionKey KeyOf(TezVector3<float> const& p)
{
    PositionKey key;
    float const values[3] = {p.x == 0 ? 0.0f : p.x, p.y == 0 ? 0.0f : p.y, p.z == 0 ? 0.0f : p.z};
    std::memcpy(key.bits, values, sizeof(values));
    return key;
}

} // namespace

TezRef<TezIndexedMesh> TezBrep::Tessellate()
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    std::vector<TezRef<TezBrepFace>> faces;
    MakeFaceList(faces);
    std::unordered_map<PositionKey, unsigned, PositionHash> welded;
    std::vector<TezMeshVertex>& vertices = mesh->GetVertices();
    std::vector<unsigned>& indices = mesh->GetIndices();
    for (TezRef<TezBrepFace> const& face : faces) {
        TezBrepFaceMesh part;
        try {
            face->Tessellate(part);
        } catch (std::runtime_error const& error) {
            TezLogger::warn("TezBrep::Tessellate: a face is left out: %s\n", error.what());
            continue;
        }
        std::vector<unsigned> remap(part.positions.size());
        for (size_t i = 0; i < part.positions.size(); ++i) {
            auto const inserted = welded.emplace(KeyOf(part.positions[i]), static_cast<unsigned>(vertices.size()));
            if (inserted.second)
                vertices.emplace_back(part.positions[i], part.normals[i]);
            remap[i] = inserted.first->second;
        }
        for (size_t t = 0; t + 2 < part.indices.size(); t += 3) {
            unsigned const a = remap[part.indices[t]], b = remap[part.indices[t + 1]], c = remap[part.indices[t + 2]];
            // Welding can fold a sliver at a pole onto an edge.
            if (a == b || b == c || a == c)
                continue;
            indices.insert(indices.end(), {a, b, c});
        }
    }
    return mesh;
}
