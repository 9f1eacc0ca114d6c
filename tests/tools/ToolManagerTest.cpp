#include "tests/render/gl/GLTestContext.h"

#include "document/CommandManager.h"
#include "document/Document.h"
#include "document/DocumentCommands.h"
#include "math/Matrix.h"
#include "mesh/IndexedMesh.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/effects/DefaultEffects.h"
#include "render/objects/SceneMesh.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"
#include "tools/ToolManager.h"
#include "tools/ViewTools.h"

#include <cmath>
#include <string>
#include <vector>

namespace {

class ToolDocument : public TezDocument
{
public:
    static TezRef<ToolDocument> Create() { return TezRef<ToolDocument>(new ToolDocument()); }
    using TezDocument::Save;
    void Save(TezString const&) override {}
};

// An application with one document, so that a zoom window has a focus
// command manager to land on.
class ToolApplication : public TezApplication
{
public:
    ToolApplication(HGLRC context, HWND window) : TezApplication(context, window) { m_instance = this; }
    ~ToolApplication() override { m_instance = nullptr; }
    TezRef<TezDocument> GetActiveDocument() override { return document; }
    TezRef<TezDocument> NewDocument() override { return document; }
    TezRef<TezDocument> OpenDocument(TezString const&) override { return nullptr; }
    TezString const& GetScriptModuleName() override { return m_name; }
    TezRef<ToolDocument> document = ToolDocument::Create();

private:
    TezString m_name{"tez"};
};

// Writes down what reaches it.
class RecordingTool : public TezTool
{
public:
    static TezRef<RecordingTool> Create(bool capture) { return TezRef<RecordingTool>(new RecordingTool(capture)); }
    void Start() override { log.push_back("start"); }
    void Stop() override { log.push_back("stop"); }
    bool OnMouseDown(int, int, unsigned long id, bool, bool) override
    {
        log.push_back("down");
        ids.push_back(id);
        return capture;
    }
    bool OnMouseDrag(int, int, bool, bool) override
    {
        log.push_back("drag");
        return true;
    }
    bool OnMouseUp(int, int, bool, bool) override
    {
        log.push_back("up");
        return false;
    }
    bool OnKeyDown(int key, bool, bool) override
    {
        log.push_back("key " + std::to_string(key));
        return true;
    }
    std::vector<std::string> log;
    std::vector<unsigned long> ids;
    bool capture;

private:
    explicit RecordingTool(bool c) : capture(c) {}
};

class ToolManagerTest : public GLTest
{
protected:
    static constexpr int kWidth = 64;
    static constexpr int kHeight = 48;

    void SetUp() override
    {
        GLTest::SetUp();
        if (IsSkipped())
            return;
        TezGLTestContext& gl = TezGLTestContext::Get();
        m_app.reset();
        app = std::make_unique<ToolApplication>(gl.context, gl.window);
        view = TezRenderViewManager::GetAppRenderViewManager()->CreateOffScreenCuda(kWidth, kHeight);
        ASSERT_TRUE(view);
        // The oldest entry of a history is never undone: the focus history
        // starts with an empty line, as a host starts it.
        app->document->GetFocusCommandManager()->Push(TezCmdInsertPython::Create(TezString("")));
        tools = TezToolManager::Of(view.Get());
        ASSERT_TRUE(tools);
        // The quad fills the middle of the view; the corners show nothing.
        quad = TezSceneMesh::Create(TezIndexedMesh::CreateQuad(1.0f, 1.0f), TezDefaultUnlitEffect::StaticType());
        quad->SetProperty(TezSceneObject::Mappable, true);
        view->GetScene()->AddChild(view->GetScene()->GetRoot(), quad);
        TezRef<TezCameraView> camera = view->GetCamera();
        camera->UsePerspective(true);
        camera->SetEye({0, 0, 10});
        camera->SetFocus({0, 0, 0});
        camera->SetUp({0, 1, 0});
        camera->SetFov(30.0f);
        camera->NearFarToBox(view->GetBounds(true));
    }

    void TearDown() override
    {
        if (view) {
            view->ActivateContext();
            quad = nullptr;
            tools = nullptr;
            view->SetScene(nullptr);
            view->DeactivateContext();
            TezRenderViewManager::GetAppRenderViewManager()->ReleaseRenderView(view);
            view = nullptr;
        }
        app.reset();
        GLTest::TearDown();
    }

    std::unique_ptr<ToolApplication> app;
    TezRef<TezRenderView> view;
    TezRef<TezToolManager> tools;
    TezRef<TezSceneMesh> quad;
};

TEST_F(ToolManagerTest, MiddleDragOrbitsByTheDraggedAngle)
{
    TezRef<TezCameraView> camera = view->GetCamera();
    // Three pixels is no drag yet: nothing moves.
    tools->OnMouseMiddleDown(32, 24, true, false);
    tools->OnMouseMiddleDrag(35, 27, true, false);
    EXPECT_FALSE(tools->IsDragging());
    EXPECT_FLOAT_EQ(10.0f, camera->GetEye().z);
    // With the first modifier the orbit turns about up by pi times the
    // dragged fraction of the half width: 16 of 32 pixels is a quarter turn.
    tools->OnMouseMiddleDrag(40, 28, true, false);
    tools->OnMouseMiddleDrag(48, 30, true, false);
    tools->OnMouseMiddleUp(48, 30, true, false);
    TezVector3<float> const eye = camera->GetEye();
    EXPECT_NEAR(10.0f, std::fabs(eye.x), 1e-3f);
    EXPECT_NEAR(0.0f, eye.y, 1e-3f);
    EXPECT_NEAR(0.0f, eye.z, 1e-3f);
    EXPECT_NEAR(0.0f, camera->GetFocus().Length(), 1e-5f);
    // An orbit is not a command.
    EXPECT_FALSE(app->document->GetFocusCommandManager()->CanUndo());
}

TEST_F(ToolManagerTest, WheelStepMovesTheEyeByDistanceTimesDeltaOverHeight)
{
    TezRef<TezCameraView> camera = view->GetCamera();
    EXPECT_TRUE(tools->OnMouseWheel(12, false, false)); // in: 10 - 10 x 12 / 48
    EXPECT_NEAR(7.5f, camera->GetEye().z, 1e-5f);
    EXPECT_TRUE(tools->OnMouseWheel(-24, false, false)); // out: 7.5 + 7.5 x 24 / 48
    EXPECT_NEAR(11.25f, camera->GetEye().z, 1e-5f);
    // A tool that takes the wheel stops the zoom.
    tools->PushTool(TezToolZoomView::Create());
    tools->PushTool(RecordingTool::Create(true));
    tools->OnMouseWheel(12, false, false);
    EXPECT_NEAR(11.25f * 0.75f, camera->GetEye().z, 1e-4f); // the recorder answers false: the view zooms
}

TEST_F(ToolManagerTest, ZoomWindowNarrowsToTheRectangleAndOneUndoTakesItBack)
{
    TezRef<TezCameraView> camera = view->GetCamera();
    TezRef<TezCommandManager> focus = app->document->GetFocusCommandManager();
    // The middle half of the view, dragged right to left with the first modifier.
    tools->OnMouseDown(48, 36, true, false);
    EXPECT_TRUE(tools->IsZoomWindowActive());
    tools->OnMouseDrag(30, 20, true, false);
    tools->OnMouseDrag(16, 12, true, false);
    tools->OnMouseUp(16, 12, true, false);
    EXPECT_FALSE(tools->IsZoomWindowActive());
    // Half the height: the tangent of the half angle halves; the eye keeps
    // its place up to half a pixel.
    float const t = std::tan(15.0f * TezPif / 180.0f);
    EXPECT_NEAR(t / 2.0f, std::tan(camera->GetFov() * 0.5f * TezPif / 180.0f), 1e-4f);
    EXPECT_NEAR(0.0f, std::fabs(camera->GetEye().x), camera->GetNear() * t * 2.0f / kHeight);
    EXPECT_NEAR(10.0f, camera->GetEye().z, 1e-4f);
    // The point that showed at the rectangle's upper edge, a quarter of the
    // view above the middle, now shows at the view's upper edge.
    TezVector3<float> const edge = camera->PixelFromPoint({0, t * 10.0f * 0.5f, 0});
    EXPECT_NEAR(kHeight, edge.y, 1.0f);
    ASSERT_EQ(2u, focus->GetUndoList().size()); // the root and one step
    focus->Undo();
    EXPECT_NEAR(30.0f, camera->GetFov(), 1e-4f);
    EXPECT_NEAR(0.0f, camera->GetEye().x, 1e-5f);
}

TEST_F(ToolManagerTest, PressHandsTheIdUnderThePointerToTheTool)
{
    TezRef<RecordingTool> tool = RecordingTool::Create(false);
    tools->PushTool(tool);
    tools->OnMouseDown(32, 24, false, false);
    tools->OnMouseUp(32, 24, false, false);
    tools->OnMouseDown(2, 2, false, false);
    tools->OnMouseUp(2, 2, false, false);
    ASSERT_EQ(2u, tool->ids.size());
    EXPECT_EQ(quad->Id(), tool->ids[0]);
    EXPECT_EQ(0u, tool->ids[1]);
}

TEST_F(ToolManagerTest, PushedToolTakesTheInputUntilPopped)
{
    TezRef<RecordingTool> lower = RecordingTool::Create(false);
    TezRef<RecordingTool> upper = RecordingTool::Create(false);
    tools->PushTool(lower);
    tools->PushTool(upper);
    EXPECT_EQ((std::vector<std::string>{"start", "stop"}), lower->log);
    tools->OnMouseDown(10, 10, false, false);
    tools->OnMouseDrag(20, 10, false, false);
    tools->OnMouseUp(20, 10, false, false);
    EXPECT_TRUE(tools->OnKeyDown(65, false, false));
    EXPECT_EQ((std::vector<std::string>{"start", "down", "drag", "up", "key 65"}), upper->log);
    EXPECT_EQ(2u, lower->log.size());

    EXPECT_EQ(upper, tools->PopTool());
    EXPECT_EQ(lower, tools->GetActiveTool());
    EXPECT_EQ(nullptr, upper->GetToolManager());
    tools->OnMouseDown(10, 10, false, false);
    EXPECT_EQ((std::vector<std::string>{"start", "stop", "start", "down"}), lower->log);
    EXPECT_EQ("stop", upper->log.back());
}

TEST_F(ToolManagerTest, PickToolThatTakesThePressCapturesTheGesture)
{
    TezRef<RecordingTool> pick = RecordingTool::Create(true);
    TezRef<RecordingTool> active = RecordingTool::Create(false);
    tools->AddPickTool(pick);
    tools->PushTool(active);
    // With the first modifier a captured press starts no zoom window.
    tools->OnMouseDown(32, 24, true, false);
    EXPECT_FALSE(tools->IsZoomWindowActive());
    tools->OnMouseDrag(40, 24, true, false);
    tools->OnMouseUp(40, 24, true, false);
    EXPECT_EQ((std::vector<std::string>{"start", "down", "drag", "up"}), pick->log);
    EXPECT_EQ((std::vector<std::string>{"start"}), active->log);
    // Taken out, it sees nothing more.
    tools->RemovePickTool(pick);
    tools->OnMouseDown(32, 24, false, false);
    EXPECT_EQ("stop", pick->log.back());
    EXPECT_EQ("down", active->log.back());
}

TEST_F(ToolManagerTest, ModalViewToolsMoveTheCameraAndLowerTheDynamicFlag)
{
    TezRef<TezCameraView> camera = view->GetCamera();
    tools->PushTool(TezToolPanView::Create());
    tools->OnMouseDown(32, 24, false, false);
    EXPECT_TRUE(camera->IsDynamic());
    tools->OnMouseDrag(32, 36, false, false); // 12 of 48 pixels down: the view follows
    tools->OnMouseUp(32, 36, false, false);
    EXPECT_FALSE(camera->IsDynamic());
    float const scale = std::tan(15.0f * TezPif / 180.0f) * 10.0f;
    EXPECT_NEAR(2.0f * scale * 12.0f / kHeight, camera->GetEye().y, 1e-4f);
    EXPECT_NEAR(camera->GetEye().y, camera->GetFocus().y, 1e-5f);

    tools->PopTool();
    tools->PushTool(TezToolZoomView::Create());
    float const before = (camera->GetEye() - camera->GetFocus()).Length();
    tools->OnMouseDown(32, 24, false, false);
    tools->OnMouseDrag(32, 12, false, false); // up 12 pixels: the eye moves away by a quarter
    tools->OnMouseUp(32, 12, false, false);
    EXPECT_NEAR(before * 1.25f, (camera->GetEye() - camera->GetFocus()).Length(), 1e-4f);
}

} // namespace
