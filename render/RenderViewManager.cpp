#include "render/RenderViewManager.h"

#include "core/Application.h"

TEZ_DEFINE_REF_FUNCTIONS(TezRenderViewManager)

TezRef<TezRenderViewManager> TezRenderViewManager::GetAppRenderViewManager()
{
    TezApplication* app = TezApplication::Instance();
    return app ? app->GetRenderViewManager() : nullptr;
}
