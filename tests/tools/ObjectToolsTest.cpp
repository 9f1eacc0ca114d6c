#include "tests/render/gl/GLTestContext.h"

#include "document/CommandManager.h"
#include "document/Document.h"
#include "document/DocumentCommands.h"
#include "document/Selection.h"
#include "document/objects/CmdTransformObject.h"
#include "document/objects/DocIndexedMesh.h"
#include "math/Matrix.h"
#include "mesh/IndexedMesh.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/effects/DefaultEffects.h"
#include "render/objects/SceneIndexedMesh.h"
#include "render/objects/SceneMesh.h"
#include "render/objects/ScenePolyline.h"
#include "render/objects/SceneRectangle.h"
#include "render/objects/SceneWidgets.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"
#include "tools/ObjectTools.h"
#include "tools/ToolManager.h"

#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace {

class ObjectDocument : public TezDocument
{
public:
    static TezRef<ObjectDocument> Create() { return TezRef<ObjectDocument>(new ObjectDocument()); }
    using TezDocument::Save;
    void Save(TezString const&) override {}
};

class ObjectApplication : public TezApplication
{
public:
    // The document is made once the application is the instance, so that
    // it gets its scenes.
    ObjectApplication(HGLRC context, HWND window) : TezApplication(context, window)
    {
        m_instance = this;
        document = ObjectDocument::Create();
    }
    ~ObjectApplication() override { m_instance = nullptr; }
    TezRef<TezDocument> GetActiveDocument() override { return document; }
    TezRef<TezDocument> NewDocument() override { return document; }
    TezRef<TezDocument> OpenDocument(TezString const&) override { return nullptr; }
    TezString const& GetScriptModuleName() override { return m_name; }
    TezRef<ObjectDocument> document;

private:
    TezString m_name{"tez"};
};

// A view of 200 x 150 pixels looking down -z from 10 units away, 30 degrees
// high: one pixel is 2 x 10 x tan(15 degrees) / 150 units on the plane z = 0.
class ObjectToolsTest : public GLTest
{
protected:
    static constexpr int kWidth = 200;
    static constexpr int kHeight = 150;

    void SetUp() override
    {
        GLTest::SetUp();
        if (IsSkipped())
            return;
        TezGLTestContext& gl = TezGLTestContext::Get();
        m_app.reset();
        app = std::make_unique<ObjectApplication>(gl.context, gl.window);
        view = TezRenderViewManager::GetAppRenderViewManager()->CreateOffScreenCuda(kWidth, kHeight);
        ASSERT_TRUE(view);
        app->document->GetCommandManager()->Push(TezCmdInsertPython::Create(TezString("")));
        view->SetScene(app->document->GetScene());
        tools = TezToolManager::Of(view.Get());
        ASSERT_TRUE(tools);
        TezRef<TezCameraView> camera = view->GetCamera();
        camera->UsePerspective(true);
        camera->SetEye({0, 0, 10});
        camera->SetFocus({0, 0, 0});
        camera->SetUp({0, 1, 0});
        camera->SetFov(30.0f);
        camera->NearFarToBox(TezBox3<float>({-3, -3, -1}, {3, 3, 1}));
    }

    void TearDown() override
    {
        if (view) {
            view->ActivateContext();
            meshes.clear();
            tools = nullptr;
            view->SetScene(nullptr);
            app->document = nullptr;
            view->DeactivateContext();
            TezRenderViewManager::GetAppRenderViewManager()->ReleaseRenderView(view);
            view = nullptr;
        }
        app.reset();
        GLTest::TearDown();
    }

    // A mesh of the document: a square of side 0.6 at `centre`.
    TezRef<TezDocIndexedMesh> AddSquare(TezVector3<float> const& centre)
    {
        TezRef<TezDocIndexedMesh> mesh = TezDocIndexedMesh::Create(TezIndexedMesh::CreateQuad(0.3f, 0.3f));
        mesh->TransformGeometry(TezTranslationTransform(centre));
        mesh->OnAdd(app->document);
        meshes.push_back(mesh);
        return mesh;
    }

    // The pointer's pixel (y down) of a point.
    void PixelOf(TezVector3<float> const& p, int& x, int& y) const
    {
        TezVector3<float> const pixel = view->GetCamera()->PixelFromPoint(p);
        x = static_cast<int>(std::floor(pixel.x));
        y = kHeight - 1 - static_cast<int>(std::floor(pixel.y));
    }

    static float UnitsPerPixel() { return 2.0f * 10.0f * std::tan(15.0f * TezPif / 180.0f) / kHeight; }

    std::unique_ptr<ObjectApplication> app;
    TezRef<TezRenderView> view;
    TezRef<TezToolManager> tools;
    std::vector<TezRef<TezDocIndexedMesh>> meshes;
};

TEST_F(ObjectToolsTest, MoveDragMovesTheMeshAlongTheArrowAndOneUndoTakesItBack)
{
    TezRef<TezDocIndexedMesh> mesh = AddSquare({0, 0, 0});
    TezRef<TezToolMoveObject> move = TezToolMoveObject::Create();
    move->SetObject(mesh);
    tools->AddPickTool(move);
    move->AddToScene(view->GetScene()->GetRoot(), 2.0f);
    std::vector<TezMatrix44<float>> steps;
    move->SetCallback([&](TezMatrix44<float> const& step) { steps.push_back(step); });

    // Hovering the x arrow highlights it; leaving it turns it back.
    int x = 0, y = 0;
    PixelOf({1.2f, 0, 0}, x, y);
    tools->OnMouseMove(x, y, false, false);
    EXPECT_EQ(0, move->GetAxis());
    EXPECT_EQ(TezWidgetAxisColor(0, true), move->GetWidget()->GetArrow(0)->GetColor());
    tools->OnMouseMove(5, 5, false, false);
    EXPECT_EQ(-1, move->GetAxis());
    EXPECT_EQ(TezWidgetAxisColor(0, false), move->GetWidget()->GetArrow(0)->GetColor());

    // 40 pixels to the right and 10 down: only the part along x counts.
    float const x0 = mesh->GetGeometry()->GetVertices()[0].position.x;
    tools->OnMouseDown(x, y, false, false);
    ASSERT_EQ(0, move->GetAxis());
    tools->OnMouseDrag(x + 20, y + 5, false, false);
    tools->OnMouseDrag(x + 40, y + 10, false, false);
    // While dragging the mesh shows the move on its scene object only.
    EXPECT_NEAR(40 * UnitsPerPixel(), mesh->GetSceneObject()->GetTransform()[3].x, 1e-3f);
    EXPECT_FLOAT_EQ(x0, mesh->GetGeometry()->GetVertices()[0].position.x);
    tools->OnMouseUp(x + 40, y + 10, false, false);

    float const moved = 40 * UnitsPerPixel();
    EXPECT_NEAR(x0 + moved, mesh->GetGeometry()->GetVertices()[0].position.x, 1e-3f);
    EXPECT_NEAR(0.0f, mesh->GetGeometry()->GetVertices()[0].position.z, 1e-5f);
    EXPECT_FLOAT_EQ(0.0f, mesh->GetSceneObject()->GetTransform()[3].x);
    EXPECT_NEAR(moved, move->GetWidget()->GetWorldMatrix()[3].x, 1e-3f);
    ASSERT_EQ(2u, steps.size());
    EXPECT_NEAR(moved, steps[0][3].x + steps[1][3].x, 1e-3f);

    TezRef<TezCommandManager> history = app->document->GetCommandManager();
    ASSERT_EQ(2u, history->GetUndoList().size()); // the root and the one move
    history->Undo();
    EXPECT_NEAR(x0, mesh->GetGeometry()->GetVertices()[0].position.x, 1e-5f);
    history->Redo();
    EXPECT_NEAR(x0 + moved, mesh->GetGeometry()->GetVertices()[0].position.x, 1e-3f);

    // A click on an arrow that moves nothing leaves no step.
    PixelOf({1.2f + moved, 0, 0}, x, y);
    tools->OnMouseDown(x, y, false, false);
    EXPECT_EQ(0, move->GetAxis());
    tools->OnMouseUp(x, y, false, false);
    EXPECT_EQ(2u, history->GetUndoList().size());
    // A matrix that cannot be undone is refused.
    EXPECT_THROW(TezCmdTransformObject::Create(mesh, TezScaleTransform(0.0f)), std::runtime_error);
}

TEST_F(ObjectToolsTest, PressBesideTheWidgetIsLeftToTheOtherTools)
{
    TezRef<TezToolMoveObject> move = TezToolMoveObject::Create();
    tools->AddPickTool(move);
    move->AddToScene(view->GetScene()->GetRoot(), 2.0f);
    TezRef<TezToolDrawPolyline> polyline = TezToolDrawPolyline::Create();
    tools->PushTool(polyline);
    tools->OnMouseDown(10, 10, false, false);
    tools->OnMouseUp(10, 10, false, false);
    EXPECT_EQ(1u, polyline->GetVertices().size());
    // With the first modifier and no tool taking the press, the zoom window starts.
    tools->PopTool();
    tools->OnMouseDown(10, 10, true, false);
    EXPECT_TRUE(tools->IsZoomWindowActive());
    tools->OnMouseUp(10, 10, true, false);
    // Out of the scene, the widget can be hung in again.
    move->RemoveFromScene();
    EXPECT_FALSE(move->GetWidget()->GetScene());
    move->AddToScene(view->GetScene()->GetRoot(), 1.0f);
    EXPECT_EQ(6, move->GetWidget()->GetNumChildren());
}

TEST_F(ObjectToolsTest, RotateDragTurnsByTheAngleDraggedAlongTheRing)
{
    // A bare scene object follows too; its command turns its transform.
    TezRef<TezSceneMesh> shape = TezSceneMesh::Create(TezIndexedMesh::CreateQuad(0.3f, 0.3f));
    view->GetScene()->AddChild(view->GetScene()->GetRoot(), shape);
    TezRef<TezToolRotateObject> rotate = TezToolRotateObject::Create();
    rotate->SetObject(TezRef<TezSceneObject>(shape));
    tools->AddPickTool(rotate);
    rotate->AddToScene(view->GetScene()->GetRoot(), 2.0f);
    float told = 0;
    rotate->SetCallback([&](TezVector3<float> const& angles) { told += angles.z; });

    // The z ring at 45 degrees, where no other ring passes; its tangent
    // there points up and to the left on the screen.
    int x = 0, y = 0;
    float const r = 2.0f / std::sqrt(2.0f);
    PixelOf({r, r, 0}, x, y);
    tools->OnMouseDown(x, y, false, false);
    ASSERT_EQ(2, rotate->GetAxis());
    tools->OnMouseDrag(x - 20, y - 20, false, false);
    tools->OnMouseDrag(x - 35, y - 35, false, false);
    tools->OnMouseUp(x - 35, y - 35, false, false);

    // 35 pixels on both axes is 49.5 along the tangent: 0.02 radians a pixel.
    float const angle = 0.02f * 35.0f * std::sqrt(2.0f);
    EXPECT_NEAR(angle, told, 2e-2f);
    TezMatrix44<float> const turned = shape->GetTransform();
    EXPECT_NEAR(std::cos(angle), turned[0].x, 2e-2f);
    EXPECT_NEAR(std::sin(angle), turned[0].y, 2e-2f);
    EXPECT_NEAR(1.0f, turned[2].z, 1e-5f);
    EXPECT_NEAR(0.0f, turned[3].x, 1e-4f); // about the widget's centre, the origin

    app->document->GetCommandManager()->Undo();
    EXPECT_NEAR(1.0f, shape->GetTransform()[0].x, 1e-5f);
    EXPECT_NEAR(0.0f, shape->GetTransform()[0].y, 1e-5f);
}

TEST_F(ObjectToolsTest, RubberBandOverThreeOfFiveMeshesSelectsThoseThree)
{
    for (int i = 0; i < 5; ++i)
        AddSquare({static_cast<float>(i - 2), 0, 0});
    size_t found = 0;
    TezRef<TezToolSelection> select =
        TezToolSelection::Create([&](TezRef<TezRenderView> v, int x0, int y0, int x1, int y1) {
            found = TezToolSelection::SelectBlock(v, app->document->GetSelection(), x0, y0, x1, y1);
        });
    tools->PushTool(select);
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    PixelOf({1.5f, -0.8f, 0}, x0, y0);
    PixelOf({-1.5f, 0.8f, 0}, x1, y1);
    tools->OnMouseDown(x0, y0, false, false);
    tools->OnMouseDrag((x0 + x1) / 2, (y0 + y1) / 2, false, false);
    tools->OnMouseDrag(x1, y1, false, false);
    EXPECT_TRUE(select->GetRectangle()->GetProperty(TezSceneObject::Visible));
    // The band in normalized screen units, x counting from the right.
    TezBox2<float> const band = select->GetRectangle()->GetRectangle();
    EXPECT_NEAR(float(kWidth - x0) / kWidth, band.GetMinimum().x, 1e-6f);
    EXPECT_NEAR(float(kWidth - x1) / kWidth, band.GetMaximum().x, 1e-6f);
    tools->OnMouseUp(x1, y1, false, false);
    EXPECT_FALSE(select->GetRectangle()->GetProperty(TezSceneObject::Visible));

    EXPECT_EQ(3u, found);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(i >= 1 && i <= 3, meshes[i]->IsSelected()) << "mesh " << i;
    // A band over the empty corner empties the selection.
    tools->OnMouseDown(2, 2, false, false);
    tools->OnMouseDrag(12, 12, false, false);
    tools->OnMouseUp(12, 12, false, false);
    EXPECT_EQ(0u, found);
    EXPECT_FALSE(meshes[2]->IsSelected());
    tools->PopTool();
    EXPECT_FALSE(select->GetRectangle()->GetScene());
}

TEST_F(ObjectToolsTest, PickOverlayPointAndPolylineGetTheClickedPoints)
{
    TezRef<TezDocIndexedMesh> mesh = AddSquare({0, 0, 0});
    struct Click
    {
        int x, y;
        unsigned long id;
        int key;
    };
    std::vector<Click> clicks;
    TezRef<TezToolPickOverlayPoint> pick =
        TezToolPickOverlayPoint::Create([&](TezRef<TezRenderView>, int x, int y, unsigned long id, int key) {
            clicks.push_back({x, y, id, key});
        });
    TezRef<TezToolDrawPolyline> polyline = TezToolDrawPolyline::Create();
    tools->AddPickTool(pick);
    tools->PushTool(polyline);
    ASSERT_TRUE(polyline->GetPolyline()->GetScene());

    int const points[3][2] = {{100, 75}, {150, 40}, {30, 120}};
    for (auto const& p : points) {
        tools->OnMouseDown(p[0], p[1], false, false);
        tools->OnMouseUp(p[0], p[1], false, false);
    }
    ASSERT_EQ(3u, clicks.size());
    EXPECT_EQ(150, clicks[1].x);
    EXPECT_EQ(40, clicks[1].y);
    EXPECT_EQ(mesh->GetSceneObject()->Id(), clicks[0].id); // the square is under the middle
    EXPECT_EQ(0u, clicks[2].id);

    TezRef<TezCameraView> camera = view->GetCamera();
    ASSERT_EQ(3u, polyline->GetVertices().size());
    // Each point lies under its pixel's centre, just past the near plane.
    for (int i = 0; i < 3; ++i) {
        TezVector3<float> const pixel = camera->PixelFromPoint(polyline->GetVertices()[i]);
        EXPECT_NEAR(points[i][0] + 0.5f, pixel.x, 1e-2f);
        EXPECT_NEAR(kHeight - points[i][1] - 0.5f, pixel.y, 1e-2f);
        float const depth = (camera->GetEye() - polyline->GetVertices()[i]).z;
        EXPECT_GT(depth, camera->GetNear());
        EXPECT_LT(depth, camera->GetNear() * 1.02f);
    }
    // The pointer pulls a fourth point behind it; a double click adds none.
    tools->OnMouseMove(60, 60, false, false);
    EXPECT_EQ(4u, polyline->GetPolyline()->GetVertices().size());
    tools->OnMouseDblClick(60, 60, false, false);
    EXPECT_EQ(3u, polyline->GetVertices().size());
    // Keys reach the callback with the last press.
    tools->OnKeyDown(13, false, false);
    EXPECT_EQ(13, clicks.back().key);
    EXPECT_EQ(30, clicks.back().x);

    tools->PopTool();
    EXPECT_FALSE(polyline->GetPolyline()->GetScene());
}

// Writes the widgets' picture where TEZ_WIDGET_PICTURE says (a look, not a check).
TEST_F(ObjectToolsTest, WidgetsPicture)
{
    char const* path = std::getenv("TEZ_WIDGET_PICTURE");
    if (!path)
        GTEST_SKIP() << "TEZ_WIDGET_PICTURE not set";
    AddSquare({-0.9f, -0.4f, 0});
    TezRef<TezToolMoveObject> move = TezToolMoveObject::Create();
    TezRef<TezToolRotateObject> rotate = TezToolRotateObject::Create();
    move->SetTransform(TezTranslationTransform(TezVector3<float>(-0.9f, -0.4f, 0)));
    rotate->SetTransform(TezTranslationTransform(TezVector3<float>(1.3f, 0.2f, 0)));
    tools->AddPickTool(move);
    tools->AddPickTool(rotate);
    move->AddToScene(view->GetScene()->GetRoot(), 1.2f);
    rotate->AddToScene(view->GetScene()->GetRoot(), 0.9f);
    TezRef<TezCameraView> camera = view->GetCamera();
    camera->SetEye({3, 4, 8});
    camera->NearFarToBox(TezBox3<float>({-3, -3, -3}, {3, 3, 3}));
    int x = 0, y = 0;
    PixelOf({-0.9f, 0.5f, 0}, x, y);
    tools->OnMouseMove(x, y, false, false); // highlights the y arrow
    view->Paint();
    EXPECT_TRUE(view->ExportImageToFile(TezString(path)));
}

} // namespace
