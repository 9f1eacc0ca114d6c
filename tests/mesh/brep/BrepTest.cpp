// B-reps read through the Rhino bridge: models written by the bridge itself
// (a box, a tube, a trimmed plane, a sphere), meshed and measured; files of
// older versions; and hostile input, which must fail cleanly without
// leaving a process behind.
#include "core/Archive.h"
#include "mesh/IndexedMesh.h"
#include "mesh/brep/BrepRhino.h"
#include "mesh/brep/detail/RhinoBridge.h"
#include "platform/OpenNurbs.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string TempPath(std::string const& name)
{
    return (testing::TempDir() + "tez_brep_" + std::to_string(getpid()) + "_" + name);
}

void WriteFile(std::string const& path, std::vector<uint8_t> const& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

TezRef<TezBrepRhino> Sample(std::string const& name, int version = 0)
{
    TezRef<TezBrepRhino> brep = TezBrepRhino::CreateFromBytes(TezBrepRhino::MakeSampleFile(name, version));
    EXPECT_TRUE(brep) << TezBrepRhino::GetLastError().c_str();
    return brep;
}

struct Closure
{
    size_t boundaryEdges = 0; // used by one triangle
    size_t overusedEdges = 0; // used by three or more
    size_t flippedEdges = 0;  // run the same way in two triangles
    size_t edges = 0;
};

// How a mesh closes: a closed, consistently wound surface uses every edge
// once in each direction.
Closure Examine(TezRef<TezIndexedMesh> const& mesh)
{
    std::map<std::pair<unsigned, unsigned>, int> directed;
    for (size_t t = 0; t < mesh->GetNumTriangles(); ++t)
        for (int c = 0; c < 3; ++c)
            ++directed[{mesh->GetIndex(t, c), mesh->GetIndex(t, (c + 1) % 3)}];
    Closure result;
    std::map<std::pair<unsigned, unsigned>, int> undirected;
    for (auto const& [edge, count] : directed) {
        if (count > 1)
            ++result.flippedEdges;
        undirected[{std::min(edge.first, edge.second), std::max(edge.first, edge.second)}] += count;
    }
    result.edges = undirected.size();
    for (auto const& [edge, count] : undirected) {
        if (count == 1)
            ++result.boundaryEdges;
        else if (count > 2)
            ++result.overusedEdges;
    }
    return result;
}

void ExpectClosed(TezRef<TezIndexedMesh> const& mesh)
{
    Closure const c = Examine(mesh);
    EXPECT_EQ(c.boundaryEdges, 0u);
    EXPECT_EQ(c.overusedEdges, 0u);
    EXPECT_EQ(c.flippedEdges, 0u);
}

long Euler(TezRef<TezIndexedMesh> const& mesh)
{
    return static_cast<long>(mesh->GetNumVertices()) - static_cast<long>(Examine(mesh).edges) +
           static_cast<long>(mesh->GetNumTriangles());
}

// Running, or at least not yet reaped and not a zombie.
bool ProcessExists(int pid)
{
    if (pid <= 0 || kill(pid, 0) != 0)
        return false;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), {});
    size_t const paren = text.rfind(')');
    return paren == std::string::npos || paren + 2 >= text.size() || text[paren + 2] != 'Z';
}

// Sets an environment variable for one scope, and stops the bridge on both
// ends, so that the next request starts a bridge that sees the change.
class ScopedBridgeEnv
{
public:
    ScopedBridgeEnv(char const* name, std::string const& value) : m_name(name)
    {
        if (char const* old = std::getenv(name))
            m_old = old, m_had = true;
        ON_End();
        setenv(name, value.c_str(), 1);
    }
    ~ScopedBridgeEnv()
    {
        ON_End();
        if (m_had)
            setenv(m_name, m_old.c_str(), 1);
        else
            unsetenv(m_name);
    }

private:
    char const* m_name;
    std::string m_old;
    bool m_had = false;
};

} // namespace

TEST(BrepRhino, BoxMeshesIntoAClosedBoxOfExactAreaAndVolume)
{
    TezRef<TezBrepRhino> box = Sample("box");
    ASSERT_TRUE(box);
    EXPECT_EQ(box->GetModel().breps.size(), 1u);
    EXPECT_EQ(box->GetNumFaces(), 6);
    EXPECT_EQ(box->GetNumEdges(), 12);
    std::vector<TezVector3<float>> vertices;
    box->GetVertexPoints(vertices);
    EXPECT_EQ(vertices.size(), 8u);

    TezRef<TezIndexedMesh> mesh = box->Tessellate();
    ExpectClosed(mesh);
    EXPECT_EQ(mesh->GetNumVertices(), 8u);
    EXPECT_NEAR(mesh->ComputeSurfaceArea(), 2 * (2 * 3 + 3 * 4 + 2 * 4), 52 * 1e-3);
    EXPECT_NEAR(mesh->ComputeVolume(), 24.0, 24 * 1e-3);

    TezBox3<float> const bounds = box->ComputeBounds();
    EXPECT_NEAR(bounds.GetMinimum().x, 0, 1e-6);
    EXPECT_NEAR(bounds.GetMaximum().y, 3, 1e-6);
    EXPECT_NEAR(bounds.GetMaximum().z, 4, 1e-6);

    std::vector<std::vector<TezVector3<float>>> edges;
    box->TessellateEdges(edges);
    ASSERT_EQ(edges.size(), 12u);
    for (auto const& edge : edges)
        EXPECT_EQ(edge.size(), 2u); // straight edges need no inner points
}

TEST(BrepRhino, TubeKeepsItsHole)
{
    TezRef<TezBrepRhino> tube = Sample("pipe");
    ASSERT_TRUE(tube);
    ASSERT_EQ(tube->GetNumFaces(), 4);

    // The two flat rings each have an outer loop and a hole.
    std::vector<TezRef<TezBrepFace>> faces;
    tube->MakeFaceList(faces);
    int rings = 0;
    for (TezRef<TezBrepFace> const& face : faces) {
        std::vector<TezBrepLoop> loops;
        face->TessellateLoops(loops);
        int outer = 0, holes = 0;
        for (TezBrepLoop const& loop : loops) {
            (loop.outer ? outer : holes)++;
            for (TezVector2<float> const& p : loop.params) {
                EXPECT_GE(p.x, -1e-5f);
                EXPECT_LE(p.x, 1 + 1e-5f);
            }
        }
        EXPECT_EQ(outer, 1);
        if (holes == 1)
            ++rings;
    }
    EXPECT_EQ(rings, 2);

    // A closed surface of genus one: the hole goes all the way through.
    TezRef<TezIndexedMesh> mesh = tube->Tessellate();
    ExpectClosed(mesh);
    EXPECT_EQ(Euler(mesh), 0);
    double const pi = 3.14159265358979;
    EXPECT_NEAR(mesh->ComputeVolume(), pi * (4 - 1) * 3, pi * 9 * 0.02);
    EXPECT_NEAR(mesh->ComputeSurfaceArea(), 24 * pi, 24 * pi * 0.02);
    // Nothing of the mesh lies inside the hole.
    for (TezMeshVertex const& v : mesh->GetVertices())
        EXPECT_GE(std::hypot(v.position.x, v.position.y), 1.0f - 1e-4f);
}

TEST(BrepRhino, TrimmedPatchMeshesOnlyInsideItsLoop)
{
    TezRef<TezBrepRhino> patch = Sample("patch");
    ASSERT_TRUE(patch);
    std::vector<TezRef<TezBrepFace>> faces;
    patch->MakeFaceList(faces);
    ASSERT_EQ(faces.size(), 1u);
    std::vector<TezBrepLoop> loops;
    faces[0]->TessellateLoops(loops);
    ASSERT_EQ(loops.size(), 1u);
    ASSERT_TRUE(loops[0].outer);
    // The area inside the loop, from its points in space (it lies in z = 0).
    double loopArea = 0;
    for (size_t i = 0, n = loops[0].points.size(); i < n; ++i) {
        TezVector3<float> const& a = loops[0].points[i];
        TezVector3<float> const& b = loops[0].points[(i + 1) % n];
        loopArea += 0.5 * (a.x * b.y - b.x * a.y);
    }
    TezRef<TezIndexedMesh> mesh = patch->Tessellate();
    EXPECT_NEAR(mesh->ComputeSurfaceArea(), std::abs(loopArea), std::abs(loopArea) * 1e-4);
    // One boundary, all of it the loop's points.
    EXPECT_EQ(Examine(mesh).boundaryEdges, loops[0].points.size());

    // The grid covers the whole plane; the loop lies inside it.
    int nu = 0, nv = 0;
    std::vector<TezBrepFacePoint> grid;
    faces[0]->MakeSurfaceGrid(nu, nv, grid);
    ASSERT_EQ(grid.size(), static_cast<size_t>(nu * nv));
    EXPECT_FLOAT_EQ(grid.front().param.x, 0.0f);
    EXPECT_FLOAT_EQ(grid.back().param.y, 1.0f);
    for (TezBrepFacePoint const& p : grid)
        EXPECT_NEAR(std::abs(p.normal.z), 1.0f, 1e-5f);
}

TEST(BrepRhino, SphereClosesAcrossItsSeamAndPoles)
{
    TezRef<TezBrepRhino> sphere = Sample("sphere");
    ASSERT_TRUE(sphere);
    TezRef<TezIndexedMesh> mesh = sphere->Tessellate();
    ExpectClosed(mesh);
    EXPECT_EQ(Euler(mesh), 2);
    double const pi = 3.14159265358979;
    EXPECT_NEAR(mesh->ComputeSurfaceArea(), 4 * pi, 4 * pi * 0.02);
    EXPECT_GT(mesh->ComputeVolume(), 0.0f); // wound outwards
}

TEST(BrepRhino, InstanceDefinitionsAreListedThroughTheirReferences)
{
    TezRef<TezBrepRhino> model = Sample("instances");
    ASSERT_TRUE(model);
    EXPECT_EQ(model->GetModel().numBrepsInInstanceDefinitions, 1);
    EXPECT_EQ(model->GetModel().numInstanceReferences, 2);
    EXPECT_EQ(model->GetNumFaces(), 12);
    std::vector<TezVector3<float>> vertices;
    model->GetVertexPoints(vertices);
    ASSERT_EQ(vertices.size(), 16u);
    for (TezVector3<float> const& v : vertices)
        EXPECT_FALSE(v.x < 1.5f && v.y < 1.5f) << "the definition's own box is not shown";
    TezRef<TezIndexedMesh> mesh = model->Tessellate();
    ExpectClosed(mesh);
    EXPECT_NEAR(mesh->ComputeVolume(), 2.0, 2e-3);
    TezBox3<float> const bounds = model->ComputeBounds();
    EXPECT_NEAR(bounds.GetMaximum().x, 6, 1e-5);
    EXPECT_NEAR(bounds.GetMaximum().y, 6, 1e-5);
}

TEST(BrepTrims, EdgeEndsThatMissTheirVertexWithinTheToleranceStillCloseTheLoop)
{
    // A unit square face whose four straight edges end up to 2e-4 away from
    // the corners, in a model of tolerance 1e-3 (as files of other programs
    // have them).
    TezBrepModelBrep brep;
    brep.tolerance = 1e-3;
    brep.vertices = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    double const jitter[4][2] = {{2e-4, -1e-4}, {-1e-4, 2e-4}, {1e-4, 1e-4}, {-2e-4, 0}};
    for (int e = 0; e < 4; ++e) {
        TezVector3<double> a = brep.vertices[e], b = brep.vertices[(e + 1) % 4];
        a.x += jitter[e][0];
        b.y += jitter[e][1];
        TezBrepCurve edge;
        edge.Initialize(1, {a, b}, {}, {});
        brep.edges.push_back(edge);
    }
    TezBrepModelFace face;
    face.surface.Initialize(2, 2, 1, 1);
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2; ++j)
            face.surface.SetControlPoint(i, j, {double(i), double(j), 0});
    face.edges = {2, 0, 3, 1}; // in no particular order
    brep.faces.push_back(face);
    brep.SampleEdges();

    auto const loops = TezBrepFaceTrims(brep, 0);
    ASSERT_EQ(loops.size(), 1u);
    ASSERT_EQ(loops[0].size(), 4u) << "one point per corner, shared by the two edges there";
    for (TezBrepTrimPoint const& p : loops[0])
        EXPECT_EQ(std::min(std::abs(p.point.x), std::abs(p.point.x - 1)), 0.0) << "snapped onto a corner";
    TezBrepFaceMesh mesh;
    TezBrepTessellateFace(brep, 0, loops, mesh);
    EXPECT_EQ(mesh.indices.size(), 6u);
    double area = 0;
    for (size_t t = 0; t < mesh.indices.size(); t += 3) {
        TezVector3<float> const& a = mesh.positions[mesh.indices[t]];
        TezVector3<float> const& b = mesh.positions[mesh.indices[t + 1]];
        TezVector3<float> const& c = mesh.positions[mesh.indices[t + 2]];
        area += 0.5 * ((b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y));
    }
    EXPECT_NEAR(area, 1.0, 1e-6) << "counter-clockwise, seen from +z";
}

TEST(BrepRhino, SavedFileReadsBackTheSame)
{
    TezRef<TezBrepRhino> tube = Sample("pipe");
    ASSERT_TRUE(tube);
    std::string const path = TempPath("tube.3dm");
    ASSERT_TRUE(tube->Save(TezString(path.c_str())));
    TezRef<TezBrep> again = TezBrep::ReadFromFile(TezString(path.c_str()));
    ASSERT_TRUE(again);
    TezRef<TezIndexedMesh> a = tube->Tessellate();
    TezRef<TezIndexedMesh> b = again->Tessellate();
    EXPECT_EQ(a->GetNumTriangles(), b->GetNumTriangles());
    EXPECT_FLOAT_EQ(a->ComputeVolume(), b->ComputeVolume());
    std::remove(path.c_str());

    // Inside an archive the 3DM bytes travel unchanged.
    std::string const archivePath = TempPath("tube.tez");
    {
        TezRef<TezArchive> archive = TezArchive::Open(archivePath.c_str(), TezArchive::Write);
        ASSERT_TRUE(archive);
        tube->Save(archive);
    }
    TezRef<TezArchive> archive = TezArchive::Open(archivePath.c_str(), TezArchive::Read);
    ASSERT_TRUE(archive);
    EXPECT_EQ(std::string(archive->ReadTag().c_str()), "brep");
    TezRef<TezBrepRhino> loaded = TezBrepRhino::CreateEmpty();
    loaded->Load(archive);
    EXPECT_EQ(loaded->GetBytes(), tube->GetBytes());
    EXPECT_EQ(loaded->GetNumFaces(), 4);
    archive = nullptr;
    std::remove(archivePath.c_str());
}

TEST(BrepRhino, ReadsFilesOfVersionsFiveToEight)
{
    std::vector<uint8_t> const newest = TezBrepRhino::MakeSampleFile("mixed", 0);
    for (int version = 5; version <= 8; ++version) {
        std::vector<uint8_t> const bytes = TezBrepRhino::ConvertFile(newest, version);
        // The header names the version: "3D Geometry File Format " and the
        // number (ten times the version) right-aligned in 8 characters.
        ASSERT_GT(bytes.size(), 32u);
        EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 24), "3D Geometry File Format ");
        EXPECT_EQ(std::atoi(std::string(bytes.begin() + 24, bytes.begin() + 32).c_str()), 10 * version);
        std::string const path = TempPath("v" + std::to_string(version) + ".3dm");
        WriteFile(path, bytes);
        TezRef<TezBrep> brep = TezBrep::ReadFromFile(TezString(path.c_str()));
        std::remove(path.c_str());
        ASSERT_TRUE(brep) << "version " << version;
        auto const& model = static_cast<TezBrepRhino*>(brep.Get())->GetModel();
        EXPECT_EQ(model.numBreps, 3);
        EXPECT_EQ(model.numNonBreps, 2) << "the line and the point";
        EXPECT_EQ(static_cast<TezBrepRhino*>(brep.Get())->GetNumFaces(), 6 + 4 + 1);
        EXPECT_NEAR(brep->Tessellate()->ComputeSurfaceArea(),
                    TezBrepRhino::CreateFromBytes(newest)->Tessellate()->ComputeSurfaceArea(), 1e-3);
    }
}

TEST(BrepRhino, MissingGarbageAndTruncatedFilesFailCleanly)
{
    TezBrepRhino::GetLastError();
    EXPECT_FALSE(TezBrep::ReadFromFile(TezString("/nonexistent/folder/model.3dm")));
    EXPECT_NE(std::string(TezBrepRhino::GetLastError().c_str()).find("cannot open"), std::string::npos);

    std::string const garbage = TempPath("garbage.3dm");
    WriteFile(garbage, std::vector<uint8_t>(5000, 0x5a));
    EXPECT_FALSE(TezBrep::ReadFromFile(TezString(garbage.c_str())));
    EXPECT_NE(std::string(TezBrepRhino::GetLastError().c_str()).find("not a readable 3DM file"), std::string::npos);
    std::remove(garbage.c_str());

    std::vector<uint8_t> bytes = TezBrepRhino::MakeSampleFile("box", 0);
    for (size_t keep : {size_t(0), size_t(31), bytes.size() / 2, bytes.size() - 1}) {
        std::vector<uint8_t> const cut(bytes.begin(), bytes.begin() + keep);
        TezRef<TezBrepRhino> brep = TezBrepRhino::CreateFromBytes(cut);
        if (brep) // opennurbs may make sense of a file cut near its end
            EXPECT_LE(brep->GetNumFaces(), 6);
        else
            EXPECT_FALSE(std::string(TezBrepRhino::GetLastError().c_str()).empty());
    }
    // The bridge survives all of that.
    EXPECT_TRUE(Sample("box"));
}

TEST(BrepRhino, HungBridgeIsKilledAndLeavesNothingRunning)
{
    std::string const script = TempPath("hang.js");
    {
        std::ofstream out(script);
        out << "process.stdin.on('data', () => {}); setInterval(() => {}, 1000);\n";
    }
    int pid = 0;
    {
        ScopedBridgeEnv bridge("TEZ_BREP_BRIDGE", script);
        ScopedBridgeEnv timeout("TEZ_BREP_BRIDGE_TIMEOUT", "1");
        auto const start = std::chrono::steady_clock::now();
        EXPECT_FALSE(TezBrepRhino::CreateFromBytes(std::vector<uint8_t>(100, 1)));
        double const seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_LT(seconds, 10.0);
        EXPECT_NE(std::string(TezBrepRhino::GetLastError().c_str()).find("no reply within"), std::string::npos);
        EXPECT_EQ(TezRhinoBridge::ProcessId(), 0);
    }
    std::remove(script.c_str());
    // A good bridge starts again, and ON_End stops it.
    ASSERT_TRUE(Sample("box"));
    pid = TezRhinoBridge::ProcessId();
    EXPECT_TRUE(ProcessExists(pid));
    ON_End();
    EXPECT_EQ(TezRhinoBridge::ProcessId(), 0);
    EXPECT_FALSE(ProcessExists(pid));
}

TEST(BrepRhino, BridgeDiesWithAHostThatCrashes)
{
    // The child must start a bridge of its own, not share this one's pipes.
    ON_End();
    int link[2];
    ASSERT_EQ(pipe(link), 0);
    pid_t const host = fork();
    ASSERT_GE(host, 0);
    if (host == 0) {
        // A host that starts the bridge and dies without ON_End.
        close(link[0]);
        int pid = 0;
        try {
            TezBrepRhino::MakeSampleFile("box", 0);
            pid = TezRhinoBridge::ProcessId();
        } catch (...) {
        }
        (void)!write(link[1], &pid, sizeof(pid));
        _exit(3);
    }
    close(link[1]);
    int bridge = 0;
    ASSERT_EQ(read(link[0], &bridge, sizeof(bridge)), static_cast<ssize_t>(sizeof(bridge)));
    close(link[0]);
    int status = 0;
    waitpid(host, &status, 0);
    ASSERT_GT(bridge, 0);
    bool gone = false;
    for (int wait = 0; wait < 200 && !gone; ++wait) {
        gone = !ProcessExists(bridge);
        if (!gone)
            usleep(10000);
    }
    EXPECT_TRUE(gone) << "bridge process " << bridge << " outlived its host";
}

TEST(BrepRhino, BridgeThatCannotStartIsReported)
{
    ScopedBridgeEnv node("TEZ_NODE", "/nonexistent/node");
    EXPECT_FALSE(TezBrepRhino::CreateFromBytes(std::vector<uint8_t>(10, 0)));
    EXPECT_NE(std::string(TezBrepRhino::GetLastError().c_str()).find("Rhino bridge"), std::string::npos);
}

TEST(BrepRhino, CorruptRepliesAreRefused)
{
    // A reply of the bridge cut anywhere, or with bytes overwritten, is
    // refused with an exception or read as far as it makes sense, never
    // read past its end.
    std::vector<uint8_t> const reply = TezRhinoBridge::ReadReply(TezBrepRhino::MakeSampleFile("pipe", 0));
    ASSERT_NO_THROW(TezRhinoBridge::DecodeModel(reply.data(), reply.size()));
    for (size_t keep = 0; keep < reply.size(); keep += 1 + keep / 3)
        EXPECT_THROW(TezRhinoBridge::DecodeModel(reply.data(), keep), std::runtime_error) << keep;
    uint32_t seed = 12345;
    for (int round = 0; round < 200; ++round) {
        std::vector<uint8_t> spoilt = reply;
        for (int k = 0; k < 4; ++k) {
            seed = seed * 1664525u + 1013904223u;
            spoilt[seed % spoilt.size()] = static_cast<uint8_t>(seed >> 24);
        }
        try {
            TezBrepModel model = TezRhinoBridge::DecodeModel(spoilt.data(), spoilt.size());
            for (TezBrepModelBrep& brep : model.breps)
                brep.SampleEdges();
        } catch (std::runtime_error const&) {
        }
    }
}
