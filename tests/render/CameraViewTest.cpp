#include "render/CameraView.h"
#include "render/OctreeCamera.h"

#include "core/Events.h"
#include "math/Constants.h"
#include "math/Distance.h"
#include "tests/core/TestApplication.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

namespace {

using V3 = TezVector3<float>;
using Box = TezBox3<float>;

void ExpectNear(V3 const& expected, V3 const& actual, float tolerance = 1e-4f)
{
    EXPECT_NEAR(expected.x, actual.x, tolerance);
    EXPECT_NEAR(expected.y, actual.y, tolerance);
    EXPECT_NEAR(expected.z, actual.z, tolerance);
}

void ExpectColumns(TezMatrix44<float> const& m, TezVector4<float> const (&columns)[4])
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_NEAR(columns[i][j], m[i][j], 1e-5f) << "element [" << i << "][" << j << "]";
}

// A camera with t = tan(45 degrees) = 1, which keeps hand values simple.
TezRef<TezCameraView> Camera(int width, int height, bool perspective)
{
    TezRef<TezCameraView> camera = TezCameraView::Create();
    camera->Resize(width, height);
    camera->SetFov(90.0f);
    camera->UsePerspective(perspective);
    return camera;
}

// Every corner of the box lies in the viewport and between near and far.
void ExpectInsideFrustum(TezCameraView const& camera, Box const& box)
{
    for (int c = 0; c < 8; ++c) {
        V3 const corner = box.Corner(c & 1, c & 2, c & 4);
        V3 const pixel = camera.PixelFromPoint(corner);
        EXPECT_GE(pixel.x, -1e-3f) << "corner " << c;
        EXPECT_LE(pixel.x, camera.GetWidth() + 1e-3f) << "corner " << c;
        EXPECT_GE(pixel.y, -1e-3f) << "corner " << c;
        EXPECT_LE(pixel.y, camera.GetHeight() + 1e-3f) << "corner " << c;
        float const along = (corner - camera.GetEye()) * (camera.GetFocus() - camera.GetEye()).Normalized();
        EXPECT_GT(along, camera.GetNear()) << "corner " << c;
        EXPECT_LT(along, camera.GetFar()) << "corner " << c;
    }
}

class RedrawCounter : public TezEventHandler
{
public:
    static TezRef<RedrawCounter> Create() { return TezRef<RedrawCounter>(new RedrawCounter()); }
    void Handle(TezRef<TezEvent>) override { ++count; }
    int count = 0;
};

} // namespace

TEST(TezCameraView, FreshCameraAndCopies)
{
    TezRef<TezCameraView> camera = TezCameraView::Create();
    ExpectNear(V3(0, 0, 10), camera->GetEye());
    ExpectNear(V3(0, 0, 0), camera->GetFocus());
    EXPECT_EQ(5.0f, camera->GetNear());
    EXPECT_EQ(40.0f, camera->GetFar());
    EXPECT_FALSE(camera->UsingPerspective());

    camera->Resize(640, 480);
    camera->SetEye(V3(1, 2, 3));
    camera->UsePerspective(true);
    TezCameraView copy(*camera);
    EXPECT_EQ(480, copy.GetHeight());
    ExpectNear(V3(1, 2, 3), copy.GetEye());
    EXPECT_TRUE(copy.UsingPerspective());
}

TEST(TezCameraView, ProjectionMatricesKeepTheirDepthRanges)
{
    // 200 x 100, fov 90, near 5, far 40: f = 1, aspect 2.
    auto perspective = Camera(200, 100, true);
    ExpectColumns(perspective->GetPerspectiveMatrix(),
                  {{-0.5f, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 45.0f / 35, 1}, {0, 0, -400.0f / 35, 0}});
    EXPECT_EQ(perspective->GetPerspectiveMatrix(), perspective->GetProjectionMatrix());
    // Perspective depth runs from -1 at near to 1 at far.
    auto depth = [](TezMatrix44<float> const& m, float z) {
        TezVector4<float> const clip = m * TezVector4<float>(0, 0, z, 1);
        return clip.z / clip.w;
    };
    EXPECT_NEAR(-1.0f, depth(perspective->GetPerspectiveMatrix(), 5), 1e-5f);
    EXPECT_NEAR(1.0f, depth(perspective->GetPerspectiveMatrix(), 40), 1e-5f);

    // Orthographic: top = t * |focus - eye| = 10, right = 20; depth 0 to 1.
    auto ortho = Camera(200, 100, false);
    ExpectColumns(ortho->GetOrthographicMatrix(),
                  {{-0.05f, 0, 0, 0}, {0, 0.1f, 0, 0}, {0, 0, 1.0f / 35, 0}, {0, 0, -5.0f / 35, 1}});
    EXPECT_EQ(ortho->GetOrthographicMatrix(), ortho->GetProjectionMatrix());
    EXPECT_NEAR(0.0f, depth(ortho->GetOrthographicMatrix(), 5), 1e-6f);
    EXPECT_NEAR(1.0f, depth(ortho->GetOrthographicMatrix(), 40), 1e-6f);
    EXPECT_NEAR(10.0f, perspective->GetScale(), 1e-5f);

    // Only the orthographic matrix guards a zero height (aspect 1).
    ortho->SetHeight(0);
    EXPECT_NEAR(-0.1f, ortho->GetOrthographicMatrix()[0][0], 1e-6f);
}

TEST(TezCameraView, ViewMatrixAndAxes)
{
    auto camera = Camera(100, 100, false);
    camera->SetEye(V3(0, -10, 0));
    camera->SetUp(V3(0, 0, 1));
    // Axes x = (-1, 0, 0) (the viewer's left), y = (0, 0, 1), z = (0, 1, 0).
    ExpectColumns(camera->GetViewMatrix(), {{-1, 0, 0, 0}, {0, 0, 1, 0}, {0, 1, 0, 0}, {0, 0, 10, 1}});
    ExpectColumns(camera->GetViewOrientationMatrix(), {{-1, 0, 0, 0}, {0, 0, 1, 0}, {0, 1, 0, 0}, {0, 0, 0, 1}});

    // Oblique camera: a matrix with the inverse axes as rows takes world
    // offsets into view coordinates, as the view matrix does.
    camera->SetEye(V3(3, -4, 5));
    camera->SetFocus(V3(1, 1, -1));
    camera->SetUp(V3(0.2f, 0.1f, 1));
    V3 x, y, z;
    camera->GetInverseViewAxes(x, y, z);
    V3 const p(2, -7, 0.5f);
    ExpectNear(camera->GetViewMatrix() * p, TezMatrix33<float>(x, y, z) * (p - camera->GetEye()));
}

TEST(TezCameraView, PixelsPointsAndRaysDifferInY)
{
    // Default eye (0, 0, 10) looking at the origin, t = 1.
    auto perspective = Camera(100, 100, true);
    auto ortho = Camera(100, 100, false);
    // World +X appears to the right of the centre; depth is the distance in
    // perspective and the depth along the view orthographically.
    ExpectNear(V3(55, 50, std::sqrt(101.0f)), perspective->PixelFromPoint(V3(1, 0, 0)));
    ExpectNear(V3(55, 50, 10), ortho->PixelFromPoint(V3(1, 0, 0)));
    // The focus sits at the viewport's centre; RayToPixel of that pixel uses
    // the pixel's centre and passes half a pixel beside it.
    ExpectNear(V3(50, 50, 10), perspective->PixelFromPoint(V3(0, 0, 0)));
    EXPECT_GT(TezDistancePointLine(V3(0, 0, 0), perspective->RayToPixel(50, 50).GetStart(),
                                   perspective->RayToPixel(50, 50).PointOnRay(1)),
              0.01f);
    // RayToPixel's y counts down: the top row looks above the focus.
    EXPECT_GT(perspective->RayToPixel(50, 0).GetDirection().y, 0.0f);

    // Round trips on an oblique, non-square camera: x comes back at the
    // pixel's centre, y flipped.
    for (bool persp : {true, false}) {
        auto camera = Camera(320, 200, persp);
        camera->SetFov(40);
        camera->SetEye(V3(4, -6, 3));
        camera->SetFocus(V3(0.5f, 1, -0.5f));
        camera->SetUp(V3(0, 0, 1));
        camera->SetNear(2);
        int const pixels[][2] = {{0, 0}, {319, 199}, {17, 150}, {160, 100}};
        for (auto const& [px, py] : pixels) {
            V3 const point = camera->PointFromPixel(px, py);
            TezRay const ray = camera->RayToPixel(static_cast<float>(px), static_cast<float>(py));
            float const distance = persp ? camera->GetNear() : (camera->GetEye() - camera->GetFocus()).Length();
            ExpectNear(ray.PointOnRay(distance), point);
            V3 const back = camera->PixelFromPoint(point);
            EXPECT_NEAR(px + 0.5f, back.x, 2e-3f) << persp;
            EXPECT_NEAR(200 - (py + 0.5f), back.y, 2e-3f) << persp;
            if (persp) {
                ExpectNear(camera->GetEye(), ray.GetStart());
            } else {
                ExpectNear((camera->GetFocus() - camera->GetEye()).Normalized(), ray.GetDirection());
                EXPECT_NEAR((camera->GetEye() - camera->GetFocus()).Length(), back.z, 1e-3f);
            }

            // The projection matrix agrees with PixelFromPoint in x and y.
            TezVector4<float> const clip =
                camera->GetProjectionMatrix() * TezVector4<float>(camera->GetViewMatrix() * point, 1.0f);
            EXPECT_NEAR(back.x / 160 - 1, clip.x / clip.w, 1e-4f);
            EXPECT_NEAR(back.y / 100 - 1, clip.y / clip.w, 1e-4f);
        }
    }
}

TEST(TezCameraView, ClipRegionSpansThePixelRectangle)
{
    for (bool persp : {true, false}) {
        auto camera = Camera(100, 80, persp);
        // One pixel: (5, 5) to (6, 6), in corner order either way round.
        TezClipRegion<float> const region = camera->ClipRegionFromPixel(5, 5, 5, 5);
        ASSERT_EQ(4u, region.GetPlanes().size());
        auto at = [&](float x, float y) { return camera->RayToPixel(x, y).PointOnRay(9.0f); };
        EXPECT_TRUE(region.IsInside(at(5.5f, 5.5f))) << persp;
        EXPECT_FALSE(region.IsInside(at(4.5f, 5.5f))) << persp;
        EXPECT_FALSE(region.IsInside(at(5.5f, 6.7f))) << persp;

        TezClipRegion<float> const wide = camera->ClipRegionFromPixel(60, 50, 20, 10);
        EXPECT_TRUE(wide.IsInside(at(21, 49)));
        EXPECT_FALSE(wide.IsInside(at(61, 30)));
    }
}

TEST(TezCameraView, NearFarFitsTheBoxAlongTheSight)
{
    auto camera = Camera(100, 100, true); // eye (0, 0, 10) looking along -Z
    camera->NearFarToBox(Box(V3(-1, -1, -1), V3(1, 1, 1)));
    EXPECT_NEAR(9.0f * 0.9f, camera->GetNear(), 1e-5f);
    EXPECT_NEAR(11.0f * 1.1f, camera->GetFar(), 1e-5f);
    // Wholly behind the eye: far falls back on 10, near on a tenth of it.
    camera->NearFarToBox(Box(V3(-1, -1, 12), V3(1, 1, 14)));
    EXPECT_NEAR(0.9f, camera->GetNear(), 1e-6f);
    EXPECT_NEAR(11.0f, camera->GetFar(), 1e-5f);
    // Near side behind the eye, far side at 20.
    camera->NearFarToBox(Box(V3(-1, -1, -10), V3(1, 1, 12)));
    EXPECT_NEAR(1.8f, camera->GetNear(), 1e-5f);
    EXPECT_NEAR(22.0f, camera->GetFar(), 1e-4f);
}

TEST(TezCameraView, GesturesPanRotateAndZoom)
{
    Box const scene(V3(-1, -1, -1), V3(1, 1, 1));
    auto camera = Camera(200, 100, false);

    // Panning moves eye and focus together; the old focus follows the drag
    // in pixels (PixelFromPoint's y counts up).
    camera->PanView(scene, 20, 10);
    ExpectNear(camera->GetEye() - camera->GetFocus(), V3(0, 0, 10));
    ExpectNear(V3(80, 60, 10), camera->PixelFromPoint(V3(0, 0, 0)), 1e-3f);
    EXPECT_NEAR(9.0f * 0.9f, camera->GetNear(), 1e-4f);

    // A drag along one axis only is ignored, near and far included.
    camera->SetNear(1);
    EXPECT_FALSE(camera->RotateView(scene, 50, 10, 50, 90, false, false));
    EXPECT_FALSE(camera->RotateView(scene, 10, 50, 90, 50, true, false));
    EXPECT_EQ(1.0f, camera->GetNear());

    // A horizontal turn keeps the focus and the up vector.
    V3 const focus = camera->GetFocus();
    EXPECT_TRUE(camera->RotateView(scene, 100, 40, 150, 60, true, false));
    // Half a width of drag turns the eye by pi / 2 about up.
    ExpectNear(focus + V3(10, 0, 0), camera->GetEye(), 1e-3f);
    ExpectNear(V3(0, 1, 0), camera->GetUp());
    EXPECT_NEAR(0.9f * 13, camera->GetNear(), 1e-3f);

    // Rolling turns up about the line of sight (now +X).
    camera->RotateAround(TezPif / 2);
    ExpectNear(V3(0, 0, 1), camera->GetUp());

    // Zooming by minus the height puts the eye on the focus; the focus stays.
    auto zoom = Camera(100, 100, true);
    zoom->ZoomView(scene, -50);
    ExpectNear(V3(0, 0, 5), zoom->GetEye());
    zoom->ZoomView(scene, -100);
    ExpectNear(V3(0, 0, 0), zoom->GetEye());
    ExpectNear(V3(0, 0, 0), zoom->GetFocus());
    // Past the focus, the focus moves one unit ahead of the eye.
    zoom->SetEye(V3(0, 0, 1));
    zoom->ZoomView(scene, -200);
    ExpectNear(V3(0, 0, -1), zoom->GetEye());
    ExpectNear(V3(0, 0, -2), zoom->GetFocus());
}

TEST(TezCameraView, ZoomAllAndCalcZoomAllFitDifferently)
{
    Box const cube(V3(-1, -1, -1), V3(1, 1, 1));
    float const k15 = 1.0f / std::tan(TezPif * 15 / 180);
    float const k18 = 1.0f / std::tan(TezPif * 18 / 180);

    auto camera = Camera(100, 100, true);
    camera->ZoomAll(cube);
    EXPECT_EQ(30.0f, camera->GetFov());
    ExpectNear(V3(0, 0, 0), camera->GetFocus());
    ExpectNear(V3(0, 0, 1 + k15), camera->GetEye());
    ExpectInsideFrustum(*camera, cube);

    // CalcZoomAll honours fov, with 0.6 of the angle where ZoomAll has 0.5.
    V3 eye(7, 7, 7), focus(7, 7, 7);
    camera->CalcZoomAll(cube, V3(0, 0, 0), V3(0, 0, -1), V3(0, 1, 0), 30, eye, focus);
    ExpectNear(V3(0, 0, 0), focus);
    ExpectNear(V3(0, 0, 1 + k18), eye);
    // An empty box leaves the outputs alone.
    camera->CalcZoomAll(Box(), V3(0, 0, 0), V3(0, 0, -1), V3(0, 1, 0), 30, eye, focus);
    ExpectNear(V3(0, 0, 1 + k18), eye);

    // The aspect multiplies ZoomAll's x term and divides CalcZoomAll's
    // whole x term: a wide box in a wide view.
    auto wide = Camera(200, 100, true);
    Box const slab(V3(-4, -1, -1), V3(4, 1, 1));
    wide->ZoomAll(slab);
    ExpectNear(V3(0, 0, 1 + 4 * k15 * 2), wide->GetEye(), 1e-3f);
    ExpectInsideFrustum(*wide, slab);
    wide->CalcZoomAll(slab, V3(0, 0, 0), V3(0, 0, -1), V3(0, 1, 0), 30, eye, focus);
    ExpectNear(V3(0, 0, (4 * k18 + 1) / 2), eye, 1e-3f);

    // ZoomAll does not recentre: a box far down the line of sight puts the
    // eye farther from it, while CalcZoomAll's distance stays.
    Box const far(V3(-1, -1, -101), V3(1, 1, -99));
    camera->SetEye(V3(0, 0, 10));
    camera->SetFocus(V3(0, 0, 0));
    camera->ZoomAll(far);
    ExpectNear(V3(0, 0, -100), camera->GetFocus());
    EXPECT_NEAR(101 + k15, (camera->GetEye() - camera->GetFocus()).Length(), 1e-3f);
    camera->CalcZoomAll(far, V3(0, 0, 0), V3(0, 0, -1), V3(0, 1, 0), 30, eye, focus);
    EXPECT_NEAR(1 + k18, (eye - focus).Length(), 1e-3f);
}

TEST(TezCameraView, StandardViewsAndTheirNames)
{
    char const* const names[] = {"front", "back", "right", "left", "top", "bottom", "tilted", "isometric"};
    for (int i = 0; i < TezCameraView::StandardViewCount; ++i) {
        EXPECT_STREQ(names[i], TezCameraView::GetStandardViewName(i));
        EXPECT_EQ(i, TezCameraView::FindStandardView(names[i]));
    }
    EXPECT_EQ(TezCameraView::Isometric, TezCameraView::StandardViewIndex("ISOmetric"));
    EXPECT_EQ(-1, TezCameraView::FindStandardView("sideways"));
    EXPECT_EQ(TezCameraView::Tilted, TezCameraView::StandardViewIndex("sideways"));

    // Every view looks from `from` towards `to` at the box's middle, with
    // the table's up. The fit reckons with 0.6 of the angle, so the box fits
    // a square view of 1.2 times the fov given (a wider view divides the x
    // term by the aspect and no longer fits).
    Box const box(V3(1, 2, 3), V3(3, 3, 4));
    auto camera = Camera(120, 120, true);
    for (int view = 0; view < TezCameraView::StandardViewCount; ++view) {
        V3 eye, focus, up;
        camera->CalcStandardView(box, TezIdentityTransform<float>(), view, 30, eye, focus, up);
        ExpectNear(box.Middle(), focus);
        ExpectNear(TezCameraView::StandardUp[view], up);
        V3 const sight = (TezCameraView::StandardTo[view] - TezCameraView::StandardFrom[view]).Normalized();
        ExpectNear(sight, (focus - eye).Normalized());

        camera->SetEye(eye);
        camera->SetFocus(focus);
        camera->SetUp(up);
        camera->SetFov(36);
        camera->NearFarToBox(box);
        SCOPED_TRACE(names[view]);
        ExpectInsideFrustum(*camera, box);
    }
    V3 eye, focus, up;
    // A transform carries the table's vectors and the box along.
    TezMatrix44<float> const transform = TezTranslationTransform(V3(10, 0, 0)) * TezRotationAboutZ(TezPif / 2);
    camera->CalcStandardView(box, transform, TezCameraView::Front, 30, eye, focus, up);
    ExpectNear(transform * box.Middle(), focus);
    ExpectNear(V3(-1, 0, 0), up);
    ExpectNear(V3(0, 0, -1), (focus - eye).Normalized());
    EXPECT_THROW(camera->CalcStandardView(box, transform, 8, 30, eye, focus, up), std::runtime_error);
}

TEST(TezCameraView, AnimateMoveEndsOnTheTargetAndRequestsRedraws)
{
    TestApplication app;
    auto counter = RedrawCounter::Create();
    app.GetEventManager()->Subscribe(TezEventRequestRedraw::Create(), counter);
    Box const scene(V3(-1, -1, -1), V3(1, 1, 1));

    auto camera = Camera(100, 100, true);
    camera->AnimateMove(V3(5, 5, 5), V3(1, 0, 0), V3(0, 0, 1), 45, scene, 0);
    ExpectNear(V3(0, 0, 10), camera->GetEye());
    EXPECT_EQ(0, counter->count);

    camera->AnimateMove(V3(5, 5, 5), V3(1, 0, 0), V3(0, 0, 1), 45, scene, 8);
    ExpectNear(V3(5, 5, 5), camera->GetEye());
    ExpectNear(V3(1, 0, 0), camera->GetFocus());
    EXPECT_NEAR(45.0f, camera->GetFov(), 1e-4f);
    // The first step is due at once and dropped unless it is the last; the
    // rest run well inside their schedule.
    EXPECT_GE(counter->count, 1);
    EXPECT_LE(counter->count, 7);
}

TEST(TezCameraView, KernelRecordRaysMatchTheCameraFlippedInY)
{
    for (bool persp : {true, false}) {
        auto camera = Camera(64, 48, persp);
        camera->SetFov(35);
        camera->SetEye(V3(2, -5, 4));
        camera->SetFocus(V3(0.5f, 0.5f, 0.5f));
        camera->SetUp(V3(0, 0, 1));
        TezCameraRecord const record = TezMakeCameraRecord(*camera);
        EXPECT_NEAR(35 * 3.1415927f / 180, record.fov, 1e-7f);
        int const pixels[][2] = {{0, 0}, {63, 47}, {10, 30}};
        for (auto const& [x, y] : pixels) {
            TezRay const expected = camera->RayToPixel(static_cast<float>(x), static_cast<float>(47 - y));
            TezRay const ray = record.GetPixelRay(x, y);
            ExpectNear(expected.GetStart(), ray.GetStart());
            ExpectNear(expected.GetDirection(), ray.GetDirection());
        }
    }
}
