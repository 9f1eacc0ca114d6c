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
    EXPECT_STREQ("ERROR: Invalid GLX version.  Must be 1.3 or greater.\n", TezOpenGLSupport::TezErrorString(33).c_str());
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
