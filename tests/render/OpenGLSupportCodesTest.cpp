#include "render/gl/OpenGLSupport.h"

#include <gtest/gtest.h>

#include <vector>

TEST(OpenGLSupportCodes, TextsOfTheCodes)
{
    EXPECT_EQ(0u, TezOpenGLSupport::TezErrorString(0).Length());
    EXPECT_STREQ("ERROR: Failed to set the desired pixel format needed by OpenGL.\n",
                 TezOpenGLSupport::TezErrorString(16).c_str());
    EXPECT_STREQ("ERROR: Morvane requires OpenGL version 4.3 or greater.\n",
                 TezOpenGLSupport::TezErrorString(21).c_str());
    EXPECT_STREQ("ERROR: Invalid GLX version.  Must be 1.3 or greater.\n",
                 TezOpenGLSupport::TezErrorString(33).c_str());
    EXPECT_STREQ("ERROR: NVidia CUDA device cannot be used by Morvane.\n",
                 TezOpenGLSupport::TezErrorString(4101).c_str());
    for (int code : {1, 22, 31, 36, 4096, 4102, -1})
        EXPECT_STREQ("ERROR: Unknown error\n", TezOpenGLSupport::TezErrorString(code).c_str()) << code;
}

TEST(OpenGLSupportCodes, VersionRule)
{
    EXPECT_FALSE(TezOpenGLSupport::IsVersionSupported(4, 2));
    EXPECT_FALSE(TezOpenGLSupport::IsVersionSupported(3, 3));
    EXPECT_TRUE(TezOpenGLSupport::IsVersionSupported(4, 3));
    EXPECT_TRUE(TezOpenGLSupport::IsVersionSupported(4, 6));
    EXPECT_TRUE(TezOpenGLSupport::IsVersionSupported(5, 0));
}

TEST(OpenGLSupportCodes, GridIndicesCoverEveryCellTwice)
{
    std::vector<unsigned> indices;
    TezOpenGLSupport::MakeIndicesForGrid(3, 2, indices);
    EXPECT_EQ((std::vector<unsigned>{0, 1, 4, 0, 4, 3, 1, 2, 5, 1, 5, 4}), indices);
    TezOpenGLSupport::MakeIndicesForGrid(1, 5, indices);
    EXPECT_TRUE(indices.empty());
}

#include "render/gl/Texture.h"

#include <GL/glew.h>

TEST(TextureTarget, ChosenFromSizeAndHint)
{
    EXPECT_EQ(unsigned(GL_TEXTURE_1D), TezTexture::ChooseTarget(1, 1, TezTexture::TypeAuto));
    EXPECT_EQ(unsigned(GL_TEXTURE_1D), TezTexture::ChooseTarget(1, 1, TezTexture::Type1D));
    EXPECT_EQ(unsigned(GL_TEXTURE_2D), TezTexture::ChooseTarget(1, 1, TezTexture::Type2D));
    EXPECT_EQ(unsigned(GL_TEXTURE_2D), TezTexture::ChooseTarget(5, 1, TezTexture::Type1D));
    EXPECT_EQ(unsigned(GL_TEXTURE_3D), TezTexture::ChooseTarget(1, 2, TezTexture::TypeAuto));
    EXPECT_EQ(unsigned(GL_TEXTURE_2D_ARRAY), TezTexture::ChooseTarget(1, 1, TezTexture::Type2DArray));
    EXPECT_EQ(unsigned(GL_TEXTURE_2D_ARRAY), TezTexture::ChooseTarget(4, 6, TezTexture::Type2DArray));
    EXPECT_EQ(unsigned(GL_TEXTURE_3D), TezTexture::ChooseTarget(1, 1, TezTexture::Type3D));

    unsigned internalFormat, dataFormat, dataType;
    int bytes;
    ASSERT_TRUE(TezTexture::GetFormatInfo(TezTexture::PixelRGB565, internalFormat, dataFormat, dataType, bytes));
    EXPECT_EQ(unsigned(GL_UNSIGNED_SHORT_5_6_5), dataType);
    EXPECT_EQ(2, bytes);
    EXPECT_FALSE(TezTexture::GetFormatInfo(static_cast<TezTexture::PixelFormat>(12), internalFormat, dataFormat,
                                           dataType, bytes));
}
