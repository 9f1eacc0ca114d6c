#pragma once
// TezRenderViewManager: the application's one owner of all render views. It
// keeps them in a list, paints them all, resets them, and runs the optional
// continuous "Render Thread", which paints every view over and over.
//
// The render layer hands the application the function that builds the
// manager when the library loads; the application makes it in its place in
// the order. Views are made by Create (a plain view) or CreateOffScreenCuda
// (a view of its own hidden surface of the asked size, with a scene); the
// host initialises a view made by Create with its window.
//
// The render thread: StartContinuousRender makes it on first use and
// starts it (true at once if it runs); PauseContinuousRender(true) holds it
// still once its current frame is done (pauses count: each true needs a
// false); StopContinuousRender stops it and waits for it to end, after
// which it can be started again. Views, scenes and cameras take no lock:
// change them from the host's thread only while the render thread is paused
// or stopped, and give the GL context up on the host's thread (no paint,
// map or pick of its own may run) for as long as the render thread runs.
// The manager stops its thread when it dies.

#include "core/RefCounter.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezRenderViewManager)
TEZ_DECLARE_REF_FUNCTIONS(TezRenderView)

class TezScheduledThread;

class TEZ_API TezRenderViewManager : public TezRefCounter
{
public:
    // Names kept for window systems that register a class for the hidden
    // surfaces; platform/gl's off-screen windows need none.
    static char const* const OffscreenClassName;   // "Morvane_offscreen_class"
    static char const* const OffscreenWindowTitle; // "Morvane"
    static char const* const RenderThreadName;     // "Render Thread"

    // The application's manager; null without an application.
    static TezRef<TezRenderViewManager> GetAppRenderViewManager();
    ~TezRenderViewManager() override;

    // A plain view, appended to the list.
    virtual TezRef<TezRenderView> Create();
    // Takes the view out of the list, keeping the order of the rest.
    virtual void ReleaseRenderView(TezRef<TezRenderView> view);
    // The view of the volume renderer (a TezCudaRenderView), appended to the
    // list.
    virtual TezRef<TezRenderView> CreateCuda();
    virtual void Add(TezRef<TezRenderView> view);
    // Paint of every view in list order; results are not looked at: true.
    virtual bool Paint();
    // Every view's PreReset or PostReset, joined by AND.
    virtual bool PreReset();
    virtual bool PostReset();
    virtual bool StartContinuousRender();
    // Pauses or resumes a running render thread; always true.
    virtual bool PauseContinuousRender(bool pause);
    virtual bool StopContinuousRender();
    // The render thread exists, runs and is not paused.
    virtual bool IsContinuousRender() const;
    // Null until the first StartContinuousRender.
    virtual TezRef<TezScheduledThread> GetThread();
    // A view of a hidden surface of width x height pixels, with a fresh
    // scene, initialised; null when the surface cannot be made.
    virtual TezRef<TezRenderView> CreateOffScreenCuda(int width, int height);

    // A copy of the list.
    std::vector<TezRef<TezRenderView>> GetRenderViewList() const { return m_views; }

private:
    friend struct TezRenderViewManagerRegistration;
    TezRenderViewManager();
    static TezRef<TezRenderViewManager> CreateForApplication();

    std::vector<TezRef<TezRenderView>> m_views;
    TezRef<TezScheduledThread> m_renderThread;
};
