#pragma once
// TezSceneText: a text in the scene at a position of its frame, drawn by
// the "Scene Text Effect" through its TezText3d (flat labels in pixels, or
// solid text in the world; see Text3d.h). With view-independent scaling a
// solid text keeps its size on the screen: one unit of its font is one
// pixel wherever the camera stands. Not mappable; its bounds are its
// position. Drawing needs the context current.

#include "render/scene/SceneObject.h"
#include "render/text/Text3d.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneText)

class TEZ_API TezSceneText : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneText)
public:
    static TezRef<TezSceneText> Create(TezString const& text = TezString(),
                                       TezVector3<float> const& position = TezVector3<float>(0, 0, 0));
    ~TezSceneText() override;

    TezVector3<float> GetPosition() const { return m_position; }
    void SetPosition(TezVector3<float> const& position) { m_position = position; }
    TezString const& GetText() const { return m_text; }
    void SetText(TezString const& text) { m_text = text; }
    TezText3d& GetText3d() { return m_text3d; }
    bool GetViewIndependentScaling() const { return m_viewIndependent; }
    void SetViewIndependentScaling(bool on) { m_viewIndependent = on; }

    TezBox3<float> GetObjectBounds() override { return TezBox3<float>(m_position, m_position); }
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneText();

private:
    TezString m_text;
    TezVector3<float> m_position{0, 0, 0};
    TezText3d m_text3d;
    bool m_viewIndependent = false;
};
