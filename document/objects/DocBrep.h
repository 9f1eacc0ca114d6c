#pragma once
// TezDocBrep: the document object of a B-rep. It holds the brep, its colour,
// one TezSceneBrepFace per face and one TezSceneThickPolyline per edge,
// under one plain scene node that OnAdd hangs from the scene's root.
//
// Faces get colours of a sequence around the object's colour (the hue
// turned by the golden angle from face to face), edges a dark grey.
//
// The archive form is the section of TypeName(): the base part, then the
// brep ("brep": the count and the bytes of its 3DM file), "color" (four
// floats) and "visible". The same content saves to the same bytes. Load
// throws std::runtime_error for a section that is not a B-rep, or a brep
// the bridge cannot read.

#include "document/DocumentObject.h"
#include "math/Vector.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezDocBrep)
TEZ_DECLARE_REF_FUNCTIONS(TezBrep)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneObject)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneBrepFace)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneThickPolyline)

class TEZ_API TezDocBrep : public TezDocumentObject
{
    TEZ_TYPIFIED_CLASS(TezDocBrep)
public:
    // A null brep is refused with std::runtime_error.
    static TezRef<TezDocBrep> Create(TezRef<TezBrep> brep);
    ~TezDocBrep() override;

    void OnAdd(TezRef<TezDocument> document) override;
    void OnRemove(TezRef<TezDocument> document) override;
    void Save(TezRef<TezArchive> archive) override;
    void Load(TezRef<TezArchive> archive) override;

    TezRef<TezBrep> GetBrep() const { return m_brep; }
    TezVector4<float> GetColor() const { return m_color; }
    void SetColor(TezVector4<float> const& color);
    bool GetVisible() const { return m_visible; }
    void SetVisible(bool visible);

    // The node that carries the faces and edges (null before a brep).
    TezRef<TezSceneObject> GetSceneObject() const { return m_node; }
    std::vector<TezRef<TezSceneBrepFace>> const& GetFaceObjects() const { return m_faces; }
    std::vector<TezRef<TezSceneThickPolyline>> const& GetEdgeObjects() const { return m_edges; }

protected:
    TezDocBrep();

private:
    void MakeSceneObjects();
    void ApplyColors();

    TezRef<TezBrep> m_brep;
    TezVector4<float> m_color;
    bool m_visible = true;
    TezRef<TezSceneObject> m_node;
    std::vector<TezRef<TezSceneBrepFace>> m_faces;
    std::vector<TezRef<TezSceneThickPolyline>> m_edges;
};
