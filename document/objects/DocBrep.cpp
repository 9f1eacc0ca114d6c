#include "document/objects/DocBrep.h"

#include "mesh/brep/Brep.h"
#include "mesh/brep/BrepRhino.h"
#include "render/objects/SceneBrepFace.h"
#include "render/objects/ScenePolyline.h"
#include "render/scene/Scene.h"

#include <cmath>
#include <stdexcept>

TEZ_TYPIFIED_IMPL(TezDocBrep, "B-rep Document Object")
TEZ_DEFINE_REF_FUNCTIONS(TezDocBrep)

namespace {

std::string Collapsed(TezString const& text)
{
    std::string out;
    for (char c : std::string(text.c_str()))
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
            out += c;
    return out;
}

// The colour with its hue turned by `turn` (a fraction of the circle).
TezVector4<float> TurnHue(TezVector4<float> const& color, float turn)
{
    float const r = color.x, g = color.y, b = color.z;
    float const hi = std::max(r, std::max(g, b)), lo = std::min(r, std::min(g, b));
    float const chroma = hi - lo;
    float hue = 0;
    if (chroma > 0) {
        if (hi == r)
            hue = std::fmod((g - b) / chroma + 6.0f, 6.0f);
        else if (hi == g)
            hue = (b - r) / chroma + 2.0f;
        else
            hue = (r - g) / chroma + 4.0f;
    }
    hue = std::fmod(hue + turn * 6.0f, 6.0f);
    float const x = chroma * (1 - std::fabs(std::fmod(hue, 2.0f) - 1));
    float rgb[3] = {0, 0, 0};
    int const sector = static_cast<int>(hue) % 6;
    float const table[6][3] = {{chroma, x, 0}, {x, chroma, 0}, {0, chroma, x},
                               {0, x, chroma}, {x, 0, chroma}, {chroma, 0, x}};
    for (int k = 0; k < 3; ++k)
        rgb[k] = table[sector][k] + lo;
    return TezVector4<float>(rgb[0], rgb[1], rgb[2], color.w);
}

} // namespace

TezDocBrep::TezDocBrep() : m_color(0.72f, 0.62f, 0.45f, 1.0f) {}

TezDocBrep::~TezDocBrep() = default;

TezRef<TezDocBrep> TezDocBrep::Create(TezRef<TezBrep> brep)
{
    if (!brep)
        throw std::runtime_error("TezDocBrep::Create: null brep");
    TezRef<TezDocBrep> object(new TezDocBrep());
    object->m_brep = brep;
    object->MakeSceneObjects();
    return object;
}

void TezDocBrep::MakeSceneObjects()
{
    m_node = nullptr;
    m_faces.clear();
    m_edges.clear();
    if (!m_brep)
        return;
    m_node = TezSceneObject::Create();
    std::vector<TezRef<TezBrepFace>> faces;
    m_brep->MakeFaceList(faces);
    for (TezRef<TezBrepFace> const& face : faces) {
        TezRef<TezSceneBrepFace> object = TezSceneBrepFace::Create(face);
        object->SetDocumentObject(this);
        m_faces.push_back(object);
    }
    std::vector<std::vector<TezVector3<float>>> polylines;
    m_brep->TessellateEdges(polylines);
    TezBox3<float> const bounds = m_brep->ComputeBounds();
    float const thickness = bounds.Empty() ? 0.02f : std::max(bounds.MaxLength() * 0.004f, 1e-6f);
    for (auto const& line : polylines) {
        if (line.size() < 2)
            continue;
        TezRef<TezSceneThickPolyline> object = TezSceneThickPolyline::Create(line, false);
        object->SetThickness(thickness);
        object->SetDocumentObject(this);
        m_edges.push_back(object);
    }
    ApplyColors();
    m_node->SetProperty(TezSceneObject::Visible, m_visible);
}

void TezDocBrep::ApplyColors()
{
    // The golden angle keeps neighbouring faces apart however many there are.
    float const golden = 0.381966f;
    for (size_t i = 0; i < m_faces.size(); ++i)
        m_faces[i]->SetColor(TurnHue(m_color, std::fmod(golden * static_cast<float>(i), 1.0f) * 0.35f));
    for (TezRef<TezSceneThickPolyline> const& edge : m_edges)
        edge->SetColor(TezVector4<float>(0.15f, 0.15f, 0.17f, 1.0f));
}

void TezDocBrep::SetColor(TezVector4<float> const& color)
{
    m_color = color;
    ApplyColors();
}

void TezDocBrep::SetVisible(bool visible)
{
    m_visible = visible;
    if (m_node)
        m_node->SetProperty(TezSceneObject::Visible, visible);
}

void TezDocBrep::OnAdd(TezRef<TezDocument> document)
{
    TezRef<TezScene> scene = document ? document->GetScene() : nullptr;
    if (!scene || !m_node)
        return;
    // The branch is built first: its objects join their effects' lists
    // when it is hung from the root.
    if (m_node->GetNumChildren() == 0) {
        for (TezRef<TezSceneBrepFace> const& face : m_faces)
            scene->AddChild(m_node, face);
        for (TezRef<TezSceneThickPolyline> const& edge : m_edges)
            scene->AddChild(m_node, edge);
    }
    scene->AddChild(scene->GetRoot(), m_node);
}

void TezDocBrep::OnRemove(TezRef<TezDocument> document)
{
    TezRef<TezScene> scene = document ? document->GetScene() : nullptr;
    if (scene && m_node)
        scene->RemoveChild(m_node);
}

void TezDocBrep::Save(TezRef<TezArchive> archive)
{
    archive->WriteStartSection(TypeName().c_str());
    TezDocumentObject::Save(archive);
    if (m_brep)
        m_brep->Save(archive);
    archive->WriteBinary("color", &m_color.x, sizeof(float) * 4);
    archive->WriteBool("visible", m_visible);
    archive->WriteEndSection();
}

void TezDocBrep::Load(TezRef<TezArchive> archive)
{
    auto is = [](TezString const& tag, char const* name) { return tag.CompareNoCase(TezString(name)) == 0; };
    int sections = 0;
    for (;;) {
        TezString const tag = archive->ReadTag();
        if (tag.Length() == 0)
            throw std::runtime_error("TezDocBrep::Load: the archive ends inside the B-rep");
        if (is(tag, "sectionStart")) {
            if (sections == 0) {
                TezString const name = archive->ReadStartSection(0);
                if (Collapsed(name) != Collapsed(TypeName()))
                    throw std::runtime_error(std::string("TezDocBrep::Load: section \"") + name.c_str() +
                                             "\" is not a B-rep");
                ++sections;
            } else {
                TezDocumentObject::Load(archive);
            }
        } else if (is(tag, "sectionEnd")) {
            archive->ReadEndSection();
            break;
        } else if (is(tag, "brep")) {
            TezRef<TezBrepRhino> brep = TezBrepRhino::CreateEmpty();
            brep->Load(archive);
            m_brep = brep;
        } else if (is(tag, "color")) {
            archive->ReadBinary(&m_color.x, sizeof(float) * 4);
        } else if (is(tag, "visible")) {
            m_visible = archive->ReadBool();
        } else {
            archive->SkipUnknownTag();
        }
    }
    MakeSceneObjects();
}
