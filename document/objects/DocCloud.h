#pragma once
// TezDocCloud "Point Cloud Document Object": a TezPointCloud in a document,
// drawn by a TezScenePointCloud (none without a cloud).
//
// The archive form is the section of TypeName(): the base part,
// "numPoints", "points" (12 bytes a point), "color" (four floats) and
// "visible". The transform is the scene object's and is not stored. Load
// refuses with std::runtime_error a section of another kind, and a
// "points" block whose size disagrees with "numPoints" (looked at before
// anything of that size is allocated); the object is then as it was.

#include "document/DocumentObject.h"
#include "math/Matrix.h"

TEZ_DECLARE_REF_FUNCTIONS(TezDocCloud)
TEZ_DECLARE_REF_FUNCTIONS(TezPointCloud)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneObject)

class TEZ_API TezDocCloud : public TezDocumentObject
{
    TEZ_TYPIFIED_CLASS(TezDocCloud)
public:
    static TezRef<TezDocCloud> Create(TezRef<TezPointCloud> cloud);
    ~TezDocCloud() override;

    TezRef<TezPointCloud> GetCloud() const { return m_cloud; }
    virtual TezRef<TezSceneObject> GetSceneObject() const { return m_sceneObject; }

    // Through the scene object (identity and false without one).
    TezMatrix44<float> GetTransform() const;
    void SetTransform(TezMatrix44<float> const& transform);
    bool GetVisible() const;
    // Reported to the active document as changing, then changed.
    void SetVisible(bool visible);

    void OnAdd(TezRef<TezDocument> document) override;
    void OnRemove(TezRef<TezDocument> document) override;
    void Save(TezRef<TezArchive> archive) override;
    void Load(TezRef<TezArchive> archive) override;

protected:
    TezDocCloud();

private:
    void CreateSceneObject(TezVector4<float> const& color, bool visible);

    TezRef<TezPointCloud> m_cloud;
    TezRef<TezSceneObject> m_sceneObject;
};
