#pragma once
// The GL context of the test program: one off-screen window and the
// application's context, made on first use and bound on the main thread for
// the whole run. GLTest skips, with the reason, where no context can be made.

#include "platform/Handles.h"
#include "tests/core/TestApplication.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

struct TezGLTestContext
{
    static TezGLTestContext& Get();

    bool ok = false;
    std::string reason;
    HWND window = nullptr;
    HDC dc = nullptr;
    HGLRC context = nullptr;
};

class GLTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // RGBA bytes of the pixel at (x, y) of the bound read frame buffer,
    // y counting up from the bottom as GL does.
    static std::vector<unsigned char> ReadPixel(int x, int y);

    std::unique_ptr<TestApplication> m_app;
};
