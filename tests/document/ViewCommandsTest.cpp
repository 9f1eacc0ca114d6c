#include "tests/document/DocumentFixture.h"

#include "core/Logger.h"
#include "document/DocumentCommands.h"
#include "document/ExportCommands.h"
#include "document/ViewCommands.h"
#include "mesh/IndexedMesh.h"
#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/objects/SceneMesh.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"

#include <cmath>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

namespace {

void ExpectError(std::function<void()> const& call, std::string const& message)
{
    try {
        call();
        ADD_FAILURE() << "no exception, expected \"" << message << "\"";
    } catch (std::runtime_error const& error) {
        EXPECT_EQ(message, error.what());
    }
}

// An application with a main window (a handle that is never drawn to) and
// one render view that is never initialised: no GL, so exports write
// nothing, and camera moves paint nothing.
class WindowApplication : public TestApplication
{
public:
    WindowApplication() { window = TezGLPlatform::CreateOffscreenWindow(8, 8); }
    ~WindowApplication() override { TezGLPlatform::DestroyWindow(window); }
    HWND GetAppWindow() override { return window; }
    HWND window = nullptr;
};

class ViewCommandsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TezLogger::SetConsoleLevel(TezLogger::None);
        app.NewDocument();
        view = TezRenderViewManager::GetAppRenderViewManager()->Create();
        view->SetScene(TezScene::Create());
        TezRef<TezSceneMesh> quad = TezSceneMesh::Create(TezIndexedMesh::CreateQuad(1.0f, 1.0f));
        view->GetScene()->AddChild(view->GetScene()->GetRoot(), quad);
        camera = view->GetCamera();
        camera->Resize(64, 48);
    }
    void TearDown() override { TezRenderViewManager::GetAppRenderViewManager()->ReleaseRenderView(view); }

    WindowApplication app;
    TezRef<TezRenderView> view;
    TezRef<TezCameraView> camera;
};

TEST_F(ViewCommandsTest, RunFormsRefuseBadParametersWithTheirMessages)
{
    ExpectError([] { TezCmdExportMainWindowImage::Run(TezString("")); }, "Please specify a filename.");
    ExpectError([] { TezCmdExportRenderViewImage::RunStandard(TezString(""), TezString("front")); },
                "Please specify a filename.");
    ExpectError(
        [] {
            TezCmdMoveFocus::Run({0, 0, 5}, {0, 0, 0}, {0, 1, 0}, 0.0f);
        },
        "The field of view must lie between 0 and 180 degrees, not 0.");
    ExpectError(
        [] {
            TezCmdMoveFocus::Run({0, 0, 5}, {0, 0, 0}, {0, 1, 0}, 180.0f);
        },
        "The field of view must lie between 0 and 180 degrees, not 180.");
    // No render view at all.
    TezRenderViewManager::GetAppRenderViewManager()->ReleaseRenderView(view);
    ExpectError([] { TezCmdExportRenderViewImage::RunStandard(TezString("a.png"), TezString("front")); },
                "Render View window does not exist. Cannot export image.");
    ExpectError(
        [] {
            TezCmdExportRenderViewImage::RunAnimate(TezString("a.png"), TezString("x"), TezString("png"), 30, 0, 0, 5,
                                                    0, 0, 0, 0, 1, 0, 3);
        },
        "Render View window does not exist. Cannot export image.");
    ExpectError(
        [] {
            TezCmdMoveFocus::Run({0, 0, 5}, {0, 0, 0}, {0, 1, 0}, 30.0f);
        },
        "Render View window does not exist. Cannot move the camera.");
    TezRenderViewManager::GetAppRenderViewManager()->Add(view);
}

TEST_F(ViewCommandsTest, StandardExportJumpsToTheNamedViewAndAnimatedExportEndsOnTheTarget)
{
    // Pictures of a view without a context: whatever they hold, they go to
    // a folder of the test's own.
    std::string const dir = ::testing::TempDir() + "tez-view-commands";
    std::filesystem::create_directories(dir);
    EXPECT_TRUE(
        TezCmdExportRenderViewImage::RunStandard(TezString((dir + "/iso.png").c_str()), TezString("ISOMETRIC")));
    TezVector3<float> eye, focus, up;
    view->CalcStandardView(TezCameraView::Isometric, 30.0f, eye, focus, up);
    EXPECT_NEAR(0.0f, (camera->GetEye() - eye).Length(), 1e-5f);
    EXPECT_NEAR(0.0f, (camera->GetUp() - up).Length(), 1e-5f);

    // Zero frames make one, which lands on the target.
    EXPECT_TRUE(TezCmdExportRenderViewImage::RunAnimate(TezString((dir + "/anim.png").c_str()), TezString("x"),
                                                        TezString("png"), 20.0f, 1, 2, 9, 0, 0, 0, 0, 1, 0, 0));
    EXPECT_NEAR(0.0f, (camera->GetEye() - TezVector3<float>(1, 2, 9)).Length(), 1e-5f);
    EXPECT_TRUE(std::filesystem::exists(dir + "/anim_x_1.png"));
    EXPECT_FALSE(std::filesystem::exists(dir + "/anim_x_2.png"));
    std::filesystem::remove_all(dir);
    EXPECT_NEAR(20.0f, camera->GetFov(), 1e-5f);
}

TEST_F(ViewCommandsTest, MoveFocusSwapsPosesThroughTheFocusHistory)
{
    TezRef<TezCommandManager> history = app.active->GetFocusCommandManager();
    history->Push(TezCmdInsertPython::Create(TezString("")));
    TezVector3<float> const startEye = camera->GetEye();
    // Without fov and up: the camera's are kept.
    camera->SetFov(40.0f);
    ASSERT_TRUE(history->Execute(TezCmdMoveFocus::Create(view, {3, 4, 12}, {1, 1, 1})));
    EXPECT_EQ(TezVector3<float>(3, 4, 12), camera->GetEye());
    EXPECT_EQ(TezVector3<float>(1, 1, 1), camera->GetFocus());
    EXPECT_FLOAT_EQ(40.0f, camera->GetFov());
    ASSERT_TRUE(history->Execute(TezCmdMoveFocus::Create(view, {0, 9, 0}, {0, 0, 0}, 25.0f, {0, 0, 1})));
    EXPECT_EQ(TezVector3<float>(0, 0, 1), camera->GetUp());

    history->Undo();
    EXPECT_EQ(TezVector3<float>(3, 4, 12), camera->GetEye());
    EXPECT_EQ(TezVector3<float>(0, 1, 0), camera->GetUp());
    EXPECT_FLOAT_EQ(40.0f, camera->GetFov());
    history->Undo();
    EXPECT_EQ(startEye, camera->GetEye());
    EXPECT_FALSE(history->CanUndo());
    history->Redo();
    history->Redo();
    EXPECT_EQ(TezVector3<float>(0, 9, 0), camera->GetEye());
    EXPECT_FLOAT_EQ(25.0f, camera->GetFov());

    TezRef<TezCmdMoveFocus> move = TezCmdMoveFocus::Create(view, {0.1f, -2, 3}, {0, 0, 0}, 12.5f, {0, 1, 0});
    EXPECT_STREQ("tez.move_focus(0.100000001, -2, 3, 0, 0, 0, 0, 1, 0, 12.5)\n", move->BuildPython().c_str());
    move->ClearUndoMemory();
    EXPECT_FALSE(move->IsUndoable());
    EXPECT_FALSE(move->Undo());
    EXPECT_THROW(TezCmdMoveFocus::Create(nullptr, {0, 0, 1}, {0, 0, 0}), std::runtime_error);
}

TEST_F(ViewCommandsTest, ViewNormalToPlaneLooksDownTheNormalAndUndoRestoresAllSix)
{
    camera->SetNear(1.5f);
    camera->SetFar(70.0f);
    camera->SetFov(45.0f);
    TezRef<TezCommand> look = TezCmdViewNormalToPlane::Create(camera, view->GetScene(), TezPlane<float>());
    ASSERT_TRUE(look->Execute());
    // The quad's 2 x 2 square seen whole at 30 degrees: half its diagonal
    // over tan 15 degrees away, along +z, with the plane's v direction up.
    float const distance = std::sqrt(2.0f) / std::tan(15.0f * TezPif / 180.0f);
    EXPECT_NEAR(distance, camera->GetEye().z, 1e-4f);
    EXPECT_NEAR(0.0f, camera->GetFocus().Length(), 1e-6f);
    EXPECT_EQ(TezVector3<float>(0, 1, 0), camera->GetUp());
    EXPECT_FLOAT_EQ(30.0f, camera->GetFov());
    float const extent = 2.0f * std::sqrt(2.0f) * 1.1f;
    EXPECT_NEAR(distance - extent, camera->GetNear(), 1e-4f);
    EXPECT_NEAR(distance + extent, camera->GetFar(), 1e-4f);

    ASSERT_TRUE(look->Undo());
    EXPECT_FLOAT_EQ(1.5f, camera->GetNear());
    EXPECT_FLOAT_EQ(70.0f, camera->GetFar());
    EXPECT_FLOAT_EQ(45.0f, camera->GetFov());
    EXPECT_EQ(TezVector3<float>(0, 0, 10), camera->GetEye());
    ASSERT_TRUE(look->Redo());
    EXPECT_NEAR(distance, camera->GetEye().z, 1e-4f);
    look->ClearUndoMemory();
    EXPECT_FALSE(look->IsUndoable());
}

TEST_F(ViewCommandsTest, ExportCommandsCannotBeUndoneAndWriteTheirScriptLines)
{
    TezRef<TezCmdExportRenderViewImage> standard =
        TezCmdExportRenderViewImage::Create(TezString("shot.png"), view.Get());
    EXPECT_FALSE(standard->IsUndoable());
    EXPECT_FALSE(standard->Undo());
    // The line names "tilted" whatever view was shown.
    EXPECT_STREQ("tez.export_standard_view(r'shot.png', r'tilted')\n", standard->BuildPython().c_str());
    std::string const path = ::testing::TempDir() + "tez-main-window.bmp";
    TezRef<TezCmdExportMainWindowImage> main = TezCmdExportMainWindowImage::Create(TezString(path.c_str()), app.window);
    EXPECT_TRUE(main->Execute()); // no view draws into that window: nothing written, still true
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_STREQ(("tez.export_main_window(r'" + path + "')\n").c_str(), main->BuildPython().c_str());
    EXPECT_TRUE(TezCmdExportMainWindowImage::Run(TezString(path.c_str())));
}

} // namespace
