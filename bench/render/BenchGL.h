#pragma once
// GL for the drawing benchmarks: a context made and bound on a hidden window
// of its own, kept for the whole run (nothing releases it; the process ends
// with it). Where none can be made, ok is false and reason says why, for
// SkipWithError. TezBenchApplication is the application the view benchmarks
// hand the context to: it has no documents.

#include "core/Application.h"
#include "platform/Handles.h"
#include "render/gl/FrameBuffer.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"

#include <string>

struct TezBenchGL
{
    bool ok = false;
    std::string reason;
    HWND window = nullptr;
    HDC dc = nullptr;
    HGLRC context = nullptr;
};

TezBenchGL TezMakeBenchGL(int width, int height);

// The context of one size for a whole benchmark binary, bound again on each
// call (render views unbind it after every frame).
TezBenchGL& TezBenchContext(int width, int height);

// A scene drawn into a frame buffer of its own: a perspective camera of 40
// degrees at (0, 0, eyeZ) looking at the origin, near 1, far `far`. Draw
// clears, draws and waits for GL, as one timed frame.
struct TezBenchFrame
{
    TezBenchFrame(int width, int height, float eyeZ, float far);
    void Draw();

    int width, height;
    TezRef<TezScene> scene;
    TezSceneDrawData data;
    TezRef<TezFrameBuffer> buffer;
};

class TezBenchApplication : public TezApplication
{
public:
    TezBenchApplication(HGLRC context, HWND window) : TezApplication(context, window) { m_instance = this; }
    ~TezBenchApplication() override { m_instance = nullptr; }
    TezRef<TezDocument> GetActiveDocument() override { return nullptr; }
    TezRef<TezDocument> NewDocument() override { return nullptr; }
    TezRef<TezDocument> OpenDocument(TezString const&) override { return nullptr; }
    TezString const& GetScriptModuleName() override { return m_name; }

private:
    TezString m_name{"bench"};
};
