#include "core/Application.h"

#include "core/AppService.h"
#include "core/Events.h"
#include "core/Logger.h"
#include "core/Preferences.h"
#include "core/ResourceManager.h"
#include "core/Threads.h"
#include "core/UIManager.h"
#include "platform/OpenNurbs.h"

int NvOptimusEnablementCuda = 1;

namespace {

// The managers reach the application's instances of themselves through
// these accessors, handed over at load time.
template <class T, TezRef<T> (TezApplication::*Getter)()>
TezRef<T> FromApplication()
{
    TezApplication* app = TezApplication::Instance();
    return app ? (app->*Getter)() : TezRef<T>();
}

bool const g_servicesHandedOver = [] {
    TezAppService<TezThreadManager>::Set(&FromApplication<TezThreadManager, &TezApplication::GetThreadManager>);
    TezAppService<TezEventManager>::Set(&FromApplication<TezEventManager, &TezApplication::GetEventManager>);
    TezAppService<TezUIManager>::Set(&FromApplication<TezUIManager, &TezApplication::GetUIManager>);
    TezAppService<TezResourceManager>::Set(&FromApplication<TezResourceManager, &TezApplication::GetResourceManager>);
    TezAppService<TezPrefOptionManager>::Set(
        &FromApplication<TezPrefOptionManager, &TezApplication::GetPrefOptionManager>);
    return true;
}();

} // namespace

TezApplication* TezApplication::m_instance = nullptr;
TezApplication::RenderViewManagerFactory TezApplication::m_renderViewManagerFactory = nullptr;

void TezApplication::SetRenderViewManagerFactory(RenderViewManagerFactory factory)
{
    m_renderViewManagerFactory = factory;
}

TezApplication::TezApplication(HGLRC renderContext, HWND appWindow)
    : m_renderContext(renderContext), m_appWindow(appWindow)
{
    m_threadManager = TezThreadManager::Create();
    TezLogger::traceCat("Application", "built the thread manager");
    m_eventManager = TezEventManager::Create();
    TezLogger::traceCat("Application", "built the event manager");
    if (m_renderViewManagerFactory) {
        m_renderViewManager = m_renderViewManagerFactory();
        TezLogger::traceCat("Application", "built the render view manager");
    }
    m_uiManager = TezUIManager::Create();
    TezLogger::traceCat("Application", "built the UI manager");
    m_resourceManager = TezResourceManager::Create();
    TezLogger::traceCat("Application", "built the resource manager");
    m_prefOptionManager = TezPrefOptionManager::Create();
    TezLogger::traceCat("Application", "built the preference manager");
    m_no3DGraphics = Check3DGraphics();
    ON_Begin();
}

TezApplication::~TezApplication()
{
    ON_End();
    if (m_threadManager) {
        m_threadManager->AllStop();
        TezLogger::traceCat("Application", "stopped all threads");
    }
    if (m_eventManager) {
        m_eventManager->UnsubscribeAll();
        TezLogger::traceCat("Application", "dropped all subscriptions");
    }
    m_threadManager = nullptr;
    m_eventManager = nullptr;
    m_renderViewManager = nullptr;
    m_uiManager = nullptr;
    m_resourceManager = nullptr;
    m_prefOptionManager = nullptr;
    TezLogger::traceCat("Application", "released the managers");
}

TezRef<TezThreadManager> TezApplication::GetThreadManager() { return m_threadManager; }
TezRef<TezEventManager> TezApplication::GetEventManager() { return m_eventManager; }
TezRef<TezRenderViewManager> TezApplication::GetRenderViewManager() { return m_renderViewManager; }
TezRef<TezUIManager> TezApplication::GetUIManager() { return m_uiManager; }
TezRef<TezResourceManager> TezApplication::GetResourceManager() { return m_resourceManager; }
TezRef<TezPrefOptionManager> TezApplication::GetPrefOptionManager() { return m_prefOptionManager; }
HGLRC TezApplication::GetRenderContext() const { return m_renderContext; }
HWND TezApplication::GetAppWindow() { return m_appWindow; }

TezApplication* TezApplication::Instance() { return m_instance; }

bool TezApplication::IsNo3DGraphicsMode() const { return m_no3DGraphics; }

bool TezApplication::Check3DGraphics() { return m_renderContext != nullptr; }
