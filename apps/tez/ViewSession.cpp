#include "tez/ViewSession.h"

#include "core/Application.h"
#include "document/CommandManager.h"
#include "document/DocumentCommands.h"
#include "document/ExportCommands.h"
#include "document/ViewCommands.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"

namespace TezViewSession {

void StartFocusHistory(TezRef<TezDocument> document)
{
    if (document && document->GetFocusCommandManager()->GetUndoList().empty())
        document->GetFocusCommandManager()->Push(TezCmdInsertPython::Create(TezString("")));
}

void ShowDocument(TezRef<TezDocument> document)
{
    StartFocusHistory(document);
    TezRef<TezRenderViewManager> views = TezRenderViewManager::GetAppRenderViewManager();
    TezRef<TezScene> scene = document ? document->GetScene() : nullptr;
    if (!views || !scene)
        return;
    for (TezRef<TezRenderView> const& view : views->GetRenderViewList()) {
        view->SetScene(scene);
        TezBox3<float> const box = view->GetBounds(false);
        if (box.GetMinimum().x <= box.GetMaximum().x)
            view->GetCamera()->FrameStandardView(box, TezCameraView::Tilted);
    }
}

void ExportMainWindow(TezRef<TezRenderView> view, TezString const& path)
{
    TezApplication* app = TezApplication::Instance();
    TezRef<TezDocument> document = TezDocument::GetActiveDocument();
    if (!app || !view)
        return;
    TezRef<TezCommand> export_ = TezCmdExportMainWindowImage::Create(path, app->GetAppWindow());
    if (!document) {
        export_->Execute();
        return;
    }
    TezRef<TezCameraView> camera = view->GetCamera();
    TezString const pose =
        TezCmdMoveFocus::Create(view, camera->GetEye(), camera->GetFocus(), camera->GetFov(), camera->GetUp())
            ->BuildPython();
    TezRef<TezCommandManager> history = document->GetCommandManager();
    std::list<TezRef<TezCommand>> const& done = history->GetUndoList();
    // The pose once per change; two exports from one place need one line.
    bool samePose = false;
    for (auto it = done.rbegin(); it != done.rend(); ++it) {
        if (TezRef<TezCmdInsertPython> line{*it}) {
            samePose = line->BuildPython() == pose;
            break;
        }
    }
    if (!samePose)
        history->Push(TezCmdInsertPython::Create(pose));
    history->Execute(export_);
}

} // namespace TezViewSession
