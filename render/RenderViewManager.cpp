#include "render/RenderViewManager.h"

#include "core/Application.h"
#include "core/Threads.h"
#include "platform/gl/GLPlatform.h"
#include "render/scene/Scene.h"
#include "render/views/CudaRenderView.h"
#include "render/views/RenderView.h"

#include <algorithm>
#include <thread>

TEZ_DEFINE_REF_FUNCTIONS(TezRenderViewManager)

char const* const TezRenderViewManager::OffscreenClassName = "Morvane_offscreen_class";
char const* const TezRenderViewManager::OffscreenWindowTitle = "Morvane";
char const* const TezRenderViewManager::RenderThreadName = "Render Thread";

namespace {

// The one operation of the render thread: paint all views, and stay queued.
// It holds its manager as a plain pointer: the manager owns the thread, the
// thread the operation, and a counted reference back would keep all three
// alive for ever. The manager stops the thread before it goes.
class TezRenderThreadOperation : public TezThreadOperation
{
public:
    explicit TezRenderThreadOperation(TezRenderViewManager* manager) : m_manager(manager) {}
    bool Process() override
    {
        m_manager->Paint();
        return true;
    }

private:
    TezRenderViewManager* m_manager;
};

class TezPlainRenderView : public TezRenderView
{
public:
    TezPlainRenderView() = default;
};

} // namespace

// Hands the application the manager's factory when the library loads.
struct TezRenderViewManagerRegistration
{
    TezRenderViewManagerRegistration()
    {
        TezApplication::SetRenderViewManagerFactory(&TezRenderViewManager::CreateForApplication);
    }
};
static TezRenderViewManagerRegistration g_registration;

TezRenderViewManager::TezRenderViewManager() = default;

TezRenderViewManager::~TezRenderViewManager()
{
    StopContinuousRender();
    m_views.clear();
}

TezRef<TezRenderViewManager> TezRenderViewManager::CreateForApplication()
{
    return TezRef<TezRenderViewManager>(new TezRenderViewManager());
}

TezRef<TezRenderViewManager> TezRenderViewManager::GetAppRenderViewManager()
{
    TezApplication* app = TezApplication::Instance();
    return app ? app->GetRenderViewManager() : nullptr;
}

TezRef<TezRenderView> TezRenderViewManager::Create()
{
    TezRef<TezRenderView> view(new TezPlainRenderView());
    m_views.push_back(view);
    return view;
}

TezRef<TezRenderView> TezRenderViewManager::CreateCuda()
{
    // Device buffers where the ray caster runs on a GPU, otherwise host
    // buffers filled by the kernels' host loops.
    TezRef<TezRenderView> view(new TezCudaRenderView(TezCreateOctreeViewBacking()));
    m_views.push_back(view);
    return view;
}

void TezRenderViewManager::ReleaseRenderView(TezRef<TezRenderView> view)
{
    auto found = std::find(m_views.begin(), m_views.end(), view);
    if (found != m_views.end())
        m_views.erase(found);
}

void TezRenderViewManager::Add(TezRef<TezRenderView> view) { m_views.push_back(view); }

bool TezRenderViewManager::Paint()
{
    for (size_t i = 0; i < m_views.size(); ++i)
        m_views[i]->Paint();
    return true;
}

bool TezRenderViewManager::PreReset()
{
    bool result = true;
    for (TezRef<TezRenderView> const& view : m_views)
        result = view->PreReset() && result;
    return result;
}

bool TezRenderViewManager::PostReset()
{
    bool result = true;
    for (TezRef<TezRenderView> const& view : m_views)
        result = view->PostReset() && result;
    return result;
}

bool TezRenderViewManager::StartContinuousRender()
{
    if (!m_renderThread) {
        m_renderThread = TezScheduledThread::Create(TezString(RenderThreadName));
        m_renderThread->AddOperation(TezRef<TezThreadOperation>(new TezRenderThreadOperation(this)));
    }
    if (m_renderThread->IsThreadRunning())
        return true;
    TezRef<TezThreadManager> threads = TezThreadManager::GetAppThreadManager();
    if (!threads)
        return false;
    // A worker that ended leaves its handle joinable, and starting over a
    // joinable handle ends the process.
    if (m_renderThread->GetHandle().joinable())
        m_renderThread->GetHandle().join();
    if (!threads->Start(TezRef<TezThread>(m_renderThread)))
        return false;
    // The worker says it runs only once it is under way. Wait for that, so
    // that a Pause or Stop right after this call finds it running (a fresh
    // worker always enters its loop: no stop request is left over).
    while (!m_renderThread->IsThreadRunning())
        std::this_thread::yield();
    return true;
}

bool TezRenderViewManager::PauseContinuousRender(bool pause)
{
    if (m_renderThread && m_renderThread->IsThreadRunning())
        m_renderThread->Pause(pause);
    return true;
}

bool TezRenderViewManager::StopContinuousRender()
{
    if (!m_renderThread)
        return true;
    if (m_renderThread->IsThreadRunning()) {
        // A paused worker takes no operations, the stop request included:
        // lift its pauses first. The thread manager's table never holds the
        // threads it started, so the thread is stopped here, not by name.
        while (m_renderThread->IsPaused())
            m_renderThread->Pause(false);
        m_renderThread->Stop(true);
    }
    if (m_renderThread->GetHandle().joinable())
        m_renderThread->GetHandle().join();
    return true;
}

bool TezRenderViewManager::IsContinuousRender() const
{
    return m_renderThread && m_renderThread->IsThreadRunning() && !m_renderThread->IsPaused();
}

TezRef<TezScheduledThread> TezRenderViewManager::GetThread() { return m_renderThread; }

TezRef<TezRenderView> TezRenderViewManager::CreateOffScreenCuda(int width, int height)
{
    HWND window = TezGLPlatform::CreateOffscreenWindow(width, height);
    if (!window)
        return nullptr;
    TezRef<TezRenderView> view = CreateCuda();
    view->m_ownsWindow = true;
    view->SetScene(TezScene::Create());
    view->Initialize(window, static_cast<unsigned>(width), static_cast<unsigned>(height));
    return view;
}
