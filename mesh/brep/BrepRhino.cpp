#include "mesh/brep/BrepRhino.h"

#include "core/Logger.h"
#include "mesh/brep/detail/RhinoBridge.h"
#include "platform/OpenNurbs.h"

#include <cstdio>
#include <mutex>
#include <stdexcept>

TEZ_DEFINE_REF_FUNCTIONS(TezBrepRhino)
TEZ_DEFINE_REF_FUNCTIONS(TezBrepFaceRhino)

namespace {

std::mutex g_errorMutex;
std::string g_lastError;

void SetLastError(std::string const& text)
{
    std::lock_guard<std::mutex> lock(g_errorMutex);
    g_lastError = text;
}

// ON_Begin and ON_End reach the bridge through these hooks.
struct TezRhinoHooks
{
    TezRhinoHooks() { TezSetOpenNurbsHooks(&TezRhinoBridge::Begin, &TezRhinoBridge::End); }
} const g_hooks;

bool ReadWholeFile(TezString const& path, std::vector<uint8_t>& bytes)
{
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return false;
    bytes.clear();
    unsigned char buffer[1 << 16];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof(buffer), file)) > 0)
        bytes.insert(bytes.end(), buffer, buffer + n);
    bool const ok = !std::ferror(file);
    std::fclose(file);
    return ok;
}

TezVector3<float> ToFloat(TezVector3<double> const& p) { return TezVector3<float>(float(p.x), float(p.y), float(p.z)); }

} // namespace

// ---- TezBrepRhino ----

TezBrepRhino::TezBrepRhino() : m_model(std::make_shared<TezBrepModel>()) {}
TezBrepRhino::~TezBrepRhino() = default;

TezString TezBrepRhino::GetLastError()
{
    std::lock_guard<std::mutex> lock(g_errorMutex);
    TezString const text(g_lastError.c_str());
    g_lastError.clear();
    return text;
}

TezRef<TezBrepRhino> TezBrepRhino::CreateEmpty() { return TezRef<TezBrepRhino>(new TezBrepRhino()); }

TezRef<TezBrep> TezBrepRhino::ReadFromFile(TezString const& path)
{
    std::vector<uint8_t> bytes;
    if (!ReadWholeFile(path, bytes)) {
        TezLogger::error("Unable to open Rhino file for reading.\n");
        SetLastError(std::string("cannot open ") + path.c_str());
        return nullptr;
    }
    return CreateFromBytes(bytes);
}

TezRef<TezBrepRhino> TezBrepRhino::CreateFromBytes(std::vector<uint8_t> const& bytes)
{
    TezRef<TezBrepRhino> brep(new TezBrepRhino());
    if (!brep->Decode(bytes))
        return nullptr;
    return brep;
}

bool TezBrepRhino::Decode(std::vector<uint8_t> const& bytes)
{
    auto model = std::make_shared<TezBrepModel>();
    try {
        *model = TezRhinoBridge::Read(bytes);
    } catch (std::exception const& error) {
        TezLogger::log(3, nullptr, "Errors during reading of Rhino file.\n");
        TezLogger::error("%s\n", error.what());
        SetLastError(error.what());
        return false;
    }
    TezLogger::log(3, nullptr, "Successfully read Rhino file.\n");
    TezLogger::log(3, nullptr, model->valid ? "Model is valid.\n" : "Model is not valid.\n");
    for (TezBrepModelBrep& brep : model->breps)
        brep.SampleEdges();
    TezLogger::info("Found %d Breps.\n", model->numBreps);
    TezLogger::info("Found %d Instance definitions.\n", model->numInstanceDefinitionObjects);
    TezLogger::info("Found %d Breps that are part of an Instance Definition.\n", model->numBrepsInInstanceDefinitions);
    TezLogger::info("Found %d Instance Definitions.\n", model->numInstanceReferences);
    TezLogger::info("Found %d Non-Breps.\n", model->numNonBreps);
    m_bytes = bytes;
    m_model = model;
    return true;
}

std::vector<uint8_t> TezBrepRhino::MakeSampleFile(std::string const& name, int version)
{
    return TezRhinoBridge::Sample(name, version);
}

std::vector<uint8_t> TezBrepRhino::ConvertFile(std::vector<uint8_t> const& bytes, int version)
{
    return TezRhinoBridge::Write(bytes, version);
}

int TezBrepRhino::GetNumFaces() const
{
    int count = 0;
    for (TezBrepModelBrep const& brep : m_model->breps)
        count += static_cast<int>(brep.faces.size());
    return count;
}

int TezBrepRhino::GetNumEdges() const
{
    int count = 0;
    for (TezBrepModelBrep const& brep : m_model->breps)
        count += static_cast<int>(brep.edges.size());
    return count;
}

TezBox3<float> TezBrepRhino::ComputeBounds()
{
    TezBox3<float> box;
    std::vector<TezRef<TezBrepFace>> faces;
    MakeFaceList(faces);
    for (TezRef<TezBrepFace> const& face : faces)
        box += face->ComputeBounds();
    std::vector<TezVector3<float>> vertices;
    GetVertexPoints(vertices);
    for (TezVector3<float> const& v : vertices)
        box += v;
    return box;
}

TezRef<TezBrep> TezBrepRhino::Copy()
{
    TezRef<TezBrepRhino> copy(new TezBrepRhino());
    copy->m_bytes = m_bytes;
    copy->m_model = std::make_shared<TezBrepModel>(*m_model);
    return copy;
}

bool TezBrepRhino::Save(TezString const& path)
{
    std::vector<uint8_t> written;
    try {
        written = TezRhinoBridge::Write(m_bytes, 0);
    } catch (std::exception const& error) {
        TezLogger::error("Errors during writing of Rhino file.\n");
        SetLastError(error.what());
        return false;
    }
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) {
        TezLogger::error("Unable to open Rhino file for saving.\n");
        SetLastError(std::string("cannot open ") + path.c_str() + " for writing");
        return false;
    }
    bool const ok = std::fwrite(written.data(), 1, written.size(), file) == written.size();
    if (std::fclose(file) != 0 || !ok) {
        TezLogger::error("Errors during writing of Rhino file.\n");
        SetLastError(std::string("cannot write ") + path.c_str());
        return false;
    }
    TezLogger::info("Successfully wrote Rhino file.\n");
    return true;
}

void TezBrepRhino::Save(TezRef<TezArchive> archive)
{
    archive->WriteSizet("brep", m_bytes.size());
    archive->WriteBinary("", m_bytes.data(), m_bytes.size());
}

void TezBrepRhino::Load(TezRef<TezArchive> archive)
{
    std::vector<uint8_t> bytes(archive->ReadSizet());
    archive->ReadBinary(bytes.data(), bytes.size());
    if (bytes.empty()) {
        m_bytes.clear();
        m_model = std::make_shared<TezBrepModel>();
        return;
    }
    if (!Decode(bytes))
        throw std::runtime_error("TezBrepRhino::Load: the brep in the archive cannot be read: " +
                                 std::string(GetLastError().c_str()));
}

void TezBrepRhino::MakeFaceList(std::vector<TezRef<TezBrepFace>>& faces)
{
    for (size_t b = 0; b < m_model->breps.size(); ++b)
        for (size_t f = 0; f < m_model->breps[b].faces.size(); ++f)
            faces.push_back(TezBrepFaceRhino::Create(m_model, static_cast<int>(b), static_cast<int>(f)));
}

void TezBrepRhino::TessellateEdges(std::vector<std::vector<TezVector3<float>>>& polylines)
{
    for (TezBrepModelBrep& brep : m_model->breps) {
        brep.SampleEdges();
        for (auto const& points : brep.edgePoints) {
            std::vector<TezVector3<float>> line;
            line.reserve(points.size());
            for (TezVector3<double> const& p : points)
                line.push_back(ToFloat(p));
            polylines.push_back(line);
        }
    }
}

void TezBrepRhino::GetVertexPoints(std::vector<TezVector3<float>>& points)
{
    for (TezBrepModelBrep const& brep : m_model->breps)
        for (TezVector3<double> const& v : brep.vertices)
            points.push_back(ToFloat(brep.Transform(v)));
}

// ---- TezBrepFaceRhino ----

TezBrepFaceRhino::TezBrepFaceRhino(std::shared_ptr<TezBrepModel> model, int brep, int face)
    : m_model(std::move(model)), m_brep(brep), m_face(face)
{
}

TezBrepFaceRhino::~TezBrepFaceRhino() = default;

TezRef<TezBrepFaceRhino> TezBrepFaceRhino::Create(std::shared_ptr<TezBrepModel> model, int brep, int face)
{
    if (!model || brep < 0 || brep >= static_cast<int>(model->breps.size()) || face < 0 ||
        face >= static_cast<int>(model->breps[brep].faces.size()))
        throw std::runtime_error("TezBrepFaceRhino::Create: no face " + std::to_string(face) + " in brep " +
                                 std::to_string(brep));
    return TezRef<TezBrepFaceRhino>(new TezBrepFaceRhino(std::move(model), brep, face));
}

bool TezBrepFaceRhino::IsReversed() const { return m_model->breps[m_brep].faces[m_face].reversed; }

std::vector<std::vector<TezBrepTrimPoint>> const& TezBrepFaceRhino::Trims()
{
    if (!m_trimsMade) {
        TezBrepModelBrep& brep = m_model->breps[m_brep];
        brep.SampleEdges();
        m_trims = TezBrepFaceTrims(brep, m_face);
        m_trimsMade = true;
    }
    return m_trims;
}

TezBox3<float> TezBrepFaceRhino::ComputeBounds()
{
    TezBrepFaceMesh mesh;
    try {
        Tessellate(mesh);
    } catch (std::runtime_error const& error) {
        // A face that cannot be meshed has no extent to show.
        TezLogger::warn("TezBrepFaceRhino::ComputeBounds: %s\n", error.what());
    }
    TezBox3<float> box;
    for (TezVector3<float> const& p : mesh.positions)
        box += p;
    return box;
}

void TezBrepFaceRhino::TessellateLoops(std::vector<TezBrepLoop>& loops)
{
    TezBrepModelBrep const& brep = m_model->breps[m_brep];
    double u0, u1, v0, v1;
    TezBrepSurfaceRange(brep.faces[m_face].surface, u0, u1, v0, v1);
    for (auto const& trim : Trims()) {
        TezBrepLoop loop;
        double area = 0;
        for (size_t i = 0; i < trim.size(); ++i) {
            TezBrepTrimPoint const& p = trim[i];
            TezBrepTrimPoint const& q = trim[(i + 1) % trim.size()];
            area += p.uv.x * q.uv.y - q.uv.x * p.uv.y;
            loop.params.push_back({float((p.uv.x - u0) / (u1 - u0)), float((p.uv.y - v0) / (v1 - v0))});
            loop.points.push_back(ToFloat(brep.Transform(p.point)));
        }
        loop.outer = area > 0;
        loops.push_back(loop);
    }
}

void TezBrepFaceRhino::MakeSurfaceGrid(int& nu, int& nv, std::vector<TezBrepFacePoint>& points)
{
    TezBrepModelBrep const& brep = m_model->breps[m_brep];
    TezBrepModelFace const& face = brep.faces[m_face];
    std::vector<double> us, vs;
    TezBrepGridParams(face.surface, us, vs);
    double u0, u1, v0, v1;
    TezBrepSurfaceRange(face.surface, u0, u1, v0, v1);
    nu = static_cast<int>(us.size());
    nv = static_cast<int>(vs.size());
    points.clear();
    points.reserve(static_cast<size_t>(nu) * nv);
    for (int j = 0; j < nv; ++j) {
        for (int i = 0; i < nu; ++i) {
            TezVector3<double> position;
            TezVector3<double> const n = TezBrepSurfaceNormal(face.surface, us[i], vs[j], face.reversed, &position);
            TezBrepFacePoint point;
            point.position = ToFloat(brep.Transform(position));
            point.normal = ToFloat(brep.TransformNormal(n));
            point.param = TezVector2<float>(float((us[i] - u0) / (u1 - u0)), float((vs[j] - v0) / (v1 - v0)));
            points.push_back(point);
        }
    }
}

void TezBrepFaceRhino::Tessellate(TezBrepFaceMesh& mesh)
{
    if (!m_meshMade) {
        TezBrepFaceMesh made;
        TezBrepTessellateFace(m_model->breps[m_brep], m_face, Trims(), made);
        m_mesh = std::move(made);
        m_meshMade = true;
    }
    mesh = m_mesh;
}
