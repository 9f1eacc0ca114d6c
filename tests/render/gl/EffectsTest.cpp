#include "tests/render/gl/GLTestContext.h"

#include "core/Logger.h"
#include "render/CameraView.h"
#include "render/effects/DefaultEffects.h"
#include "render/effects/EqualDepthEffect.h"
#include "render/effects/GeometryEffects.h"
#include "render/effects/PointSpriteEffects.h"
#include "render/effects/ScreenEffects.h"
#include "render/effects/VolumeEffects.h"
#include "render/scene/SceneDrawData.h"

#include <GL/glew.h>

#include <string>

namespace {

class EffectsTest : public GLTest
{
protected:
    void TearDown() override
    {
        TezLogger::SetConsoleLevel(m_consoleLevel);
        GLTest::TearDown();
    }
    int m_consoleLevel = TezLogger::GetConsoleLevel();
};

struct TableRow
{
    uint32_t type;
    char const* name;
    unsigned passes;
    bool onTop;
    bool perPass;
};

std::vector<TableRow> EffectTable()
{
    return {
        {TezDefaultEffect::StaticType(), "Default Effect", 1, false, true},
        {TezDefaultUnlitEffect::StaticType(), "Default Unlit Effect", 1, false, true},
        {TezUnlitEffect::StaticType(), "Unlit Effect", 1, false, true},
        {TezBackgroundEffect::StaticType(), "Background Image Effect", 1, false, true},
        {TezGdiOverlayEffect::StaticType(), "Gdi Overlay Effect", 1, true, true},
        {TezShinyLightEffect::StaticType(), "Default Shiny Effect", 1, false, true},
        {TezEqualDepthEffect::StaticType(), "Equal Depth Effect", 4, true, false},
        {TezCirclePointSpriteEffect::StaticType(), "Circle Point Sprite Effect", 1, false, true},
        {TezTrianglePointSpriteEffect::StaticType(), "Triangle Point Sprite Effect", 1, false, true},
        {TezCirclePointBBSpriteEffect::StaticType(), "Circle Point Sprite Bounding Box Effect", 1, false, true},
        {TezEffectTriangleMesh::StaticType(), "Effect Revolved Ribbon", 2, false, true},
        {TezEffectThickPolyline::StaticType(), "Effect Thick Polyline", 2, false, true},
        {TezEffectRectangularRibbon::StaticType(), "Effect Rectangular Ribbon", 1, false, true},
        {TezEffectRevolvedRibbon::StaticType(), "Effect Revolved Ribbon", 1, false, true},
        {TezEffectPolarRibbon::StaticType(), "Effect Polar Ribbon", 2, false, true},
        {TezEffectCoordSys::StaticType(), "Effect Oriented Polyline", 3, false, true},
        {TezEffectBrepFace::StaticType(), "Effect Brep Face", 2, false, false},
        {TezSceneTextEffect::StaticType(), "Scene Text Effect", 1, false, true},
        {TezScreenSpaceEffect::StaticType(), "Screen Space Effect", 1, false, true},
        {TezLineEffect::StaticType(), "Line Effect", 1, false, true},
        {TezEffectVoxelCloud::StaticType(), "Effect Voxel Cloud", 2, false, true},
        {TezCubeVolumeEffect::StaticType(), "Cube Volume Effect", 1, false, true},
        {TezVoxelOctreeEffect::StaticType(), "Voxel Octree Effect", 1, false, true},
    };
}

// Every shader file of the table compiles and links here, for plain drawing
// and for mapping, in every pass; the registry builds each effect by its id.
TEST_F(EffectsTest, EveryEffectOfTheTableBuildsItsProgramsWithoutComplaint)
{
    TezSceneDrawData plain;
    plain.SetCamera(TezCameraView::Create());
    TezSceneDrawData mapping = plain;
    mapping.SetMapping();
    TezLogger::SetConsoleLevel(TezLogger::Error);
    for (TableRow const& row : EffectTable()) {
        TezRef<TezEffect> effect(TezCreateObjectFromType(row.type));
        ASSERT_TRUE(effect) << row.name;
        EXPECT_STREQ(row.name, effect->TypeName().c_str());
        EXPECT_EQ(row.passes, effect->GetNumPasses()) << row.name;
        EXPECT_EQ(row.onTop, effect->OnTop()) << row.name;
        EXPECT_EQ(row.perPass, effect->RenderPerPass()) << row.name;
        ::testing::internal::CaptureStdout();
        for (unsigned pass = 0; pass < effect->GetNumPasses(); ++pass) {
            for (TezSceneDrawData const* data : {&plain, &mapping}) {
                effect->StartEffect(*data, pass);
                GLint bound = 0;
                glGetIntegerv(GL_CURRENT_PROGRAM, &bound);
                if (row.type != TezVoxelOctreeEffect::StaticType()) {
                    EXPECT_NE(0, bound) << row.name << " pass " << pass << (data->IsMapping() ? " mapping" : "");
                }
                effect->EndEffect(*data, pass);
            }
        }
        std::string const log = ::testing::internal::GetCapturedStdout();
        EXPECT_EQ("", log) << row.name;
        bool const programs = row.type != TezVoxelOctreeEffect::StaticType();
        EXPECT_EQ(programs, effect->GetProgramId() != 0) << row.name;
        EXPECT_EQ(programs, effect->GetMapProgramId() != 0) << row.name;
        EXPECT_TRUE(effect->PreReset());
        EXPECT_EQ(0u, effect->GetProgramId()) << row.name;
        EXPECT_TRUE(effect->PostReset());
        EXPECT_EQ(programs, effect->GetProgramId() != 0) << row.name;
        effect->PreReset();
    }
    EXPECT_EQ(GLenum(GL_NO_ERROR), glGetError());
}

TEST_F(EffectsTest, UnlitEffectMapsWithItsOwnProgramAndDefaultWithAnother)
{
    TezRef<TezEffect> unlit(TezCreateObjectFromType(TezUnlitEffect::StaticType()));
    TezRef<TezDefaultEffect> lit = TezDefaultEffect::Create();
    TezSceneDrawData data;
    unlit->StartEffect(data, 0);
    unlit->EndEffect(data, 0);
    lit->StartEffect(data, 0);
    lit->EndEffect(data, 0);
    EXPECT_EQ(unlit->GetProgramId(), unlit->GetMapProgramId());
    EXPECT_NE(lit->GetProgramId(), lit->GetMapProgramId());
    EXPECT_EQ(1, glGetAttribLocation(lit->GetProgramId(), "inNormal"));
    unlit->PreReset();
    lit->PreReset();
}

// The shiny effect starts from its stated uniform values and follows the
// camera's eye.
TEST_F(EffectsTest, ShinyEffectInitialUniforms)
{
    TezRef<TezEffect> shiny(TezCreateObjectFromType(TezShinyLightEffect::StaticType()));
    TezSceneDrawData data;
    TezRef<TezCameraView> camera = TezCameraView::Create();
    camera->SetEye(TezVector3<float>(1.0f, 2.0f, 3.0f));
    data.SetCamera(camera);
    shiny->StartEffect(data, 0);
    GLuint const program = shiny->GetProgramId();
    auto read3 = [program](char const* name) {
        float v[3] = {-1, -1, -1};
        glGetUniformfv(program, glGetUniformLocation(program, name), v);
        return std::vector<float>(v, v + 3);
    };
    EXPECT_EQ((std::vector<float>{1, 1, 1}), read3("globalAmbient"));
    EXPECT_EQ((std::vector<float>{0, 0, 0}), read3("Ke"));
    EXPECT_EQ((std::vector<float>{0, 0, 0}), read3("Ka"));
    EXPECT_EQ((std::vector<float>{0.7f, 0.7f, 0.7f}), read3("Ks"));
    EXPECT_EQ((std::vector<float>{1, 2, 3}), read3("eyePosition"));
    EXPECT_EQ((std::vector<float>{0, 0, 0}), read3("lightPosition")); // no light in the draw data
    float shininess = 0;
    glGetUniformfv(program, glGetUniformLocation(program, "shininess"), &shininess);
    EXPECT_EQ(50.0f, shininess);
    shiny->EndEffect(data, 0);
    shiny->PreReset();
}

} // namespace
