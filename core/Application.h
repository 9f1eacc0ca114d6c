#pragma once
// TezApplication: the one application object a host derives and owns.
//
// The host builds its subclass with its render context and main window (both
// may be null: no context means no 3D graphics) and stores it in m_instance;
// from then on the kernel reaches every shared service through Instance().
// Managers are built in this order: thread, event, render view, UI, resource,
// preference option. Tear-down ends the B-rep layer, stops all threads, drops
// all subscriptions, then releases the managers, the preference manager last.
// A manager whose subsystem is not part of this build stays null.
//
// IsNo3DGraphicsMode() answers true when a render context EXISTS. Hosts rely
// on that reading; inside the kernel test GetRenderContext() for null instead.

#include "core/RefCounter.h"
#include "core/String.h"
#include "platform/Handles.h"

TEZ_DECLARE_REF_FUNCTIONS(TezThreadManager)
TEZ_DECLARE_REF_FUNCTIONS(TezEventManager)
TEZ_DECLARE_REF_FUNCTIONS(TezRenderViewManager)
TEZ_DECLARE_REF_FUNCTIONS(TezUIManager)
TEZ_DECLARE_REF_FUNCTIONS(TezResourceManager)
TEZ_DECLARE_REF_FUNCTIONS(TezPrefOptionManager)
TEZ_DECLARE_REF_FUNCTIONS(TezDocument)

// Asks the NVIDIA Optimus driver for the discrete GPU; always 1.
extern "C" TEZ_API int NvOptimusEnablementCuda;

class TEZ_API TezApplication
{
public:
    virtual TezRef<TezThreadManager> GetThreadManager();
    virtual TezRef<TezEventManager> GetEventManager();
    virtual TezRef<TezRenderViewManager> GetRenderViewManager();
    virtual TezRef<TezUIManager> GetUIManager();
    virtual TezRef<TezResourceManager> GetResourceManager();
    virtual TezRef<TezPrefOptionManager> GetPrefOptionManager();
    virtual HGLRC GetRenderContext() const;
    virtual HWND GetAppWindow();
    virtual TezRef<TezDocument> GetActiveDocument() = 0;
    virtual TezRef<TezDocument> NewDocument() = 0;
    virtual TezRef<TezDocument> OpenDocument(TezString const& filename) = 0;
    virtual TezString const& GetScriptModuleName() = 0;
    virtual ~TezApplication();

    static TezApplication* Instance();
    bool IsNo3DGraphicsMode() const;

    // The render views live above the kernel core: their subsystem hands the
    // application the function that builds its manager (at load time), and
    // an application built afterwards makes it in its place in the order.
    using RenderViewManagerFactory = TezRef<TezRenderViewManager> (*)();
    static void SetRenderViewManagerFactory(RenderViewManagerFactory factory);

    TezApplication(TezApplication const&) = delete;
    TezApplication& operator=(TezApplication const&) = delete;

protected:
    TezApplication(HGLRC renderContext, HWND appWindow);

    static TezApplication* m_instance;
    static RenderViewManagerFactory m_renderViewManagerFactory;

private:
    bool Check3DGraphics();

    TezRef<TezEventManager> m_eventManager;
    TezRef<TezThreadManager> m_threadManager;
    TezRef<TezRenderViewManager> m_renderViewManager;
    TezRef<TezUIManager> m_uiManager;
    TezRef<TezResourceManager> m_resourceManager;
    TezRef<TezPrefOptionManager> m_prefOptionManager;
    bool m_no3DGraphics = false;
    HGLRC m_renderContext = nullptr;
    HWND m_appWindow = nullptr;
};
