#include "document/ExportCommands.h"

#include "core/Application.h"
#include "core/Logger.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/views/RenderView.h"

#include <algorithm>
#include <sys/stat.h>

namespace {

TezString Module()
{
    TezApplication* app = TezApplication::Instance();
    return app ? app->GetScriptModuleName() : TezString("");
}

TezRef<TezRenderView> FirstRenderView()
{
    TezRef<TezRenderViewManager> views = TezRenderViewManager::GetAppRenderViewManager();
    if (!views || views->GetRenderViewList().empty())
        TezLogger::except("Render View window does not exist. Cannot export image.");
    return views->GetRenderViewList().front();
}

} // namespace

// ---- main window ----

TezRef<TezCmdExportMainWindowImage> TezCmdExportMainWindowImage::Create(TezString const& fileName, HWND window)
{
    return TezRef<TezCmdExportMainWindowImage>(new TezCmdExportMainWindowImage(fileName, window));
}

bool TezCmdExportMainWindowImage::ExportImageToFile(TezString const& fileName, HWND window)
{
    // No screen grab here: the window's picture is what its render view
    // draws into it.
    TezRef<TezRenderViewManager> views = TezRenderViewManager::GetAppRenderViewManager();
    if (views && window)
        for (TezRef<TezRenderView> const& view : views->GetRenderViewList())
            if (view->GetHWnd() == window) {
                view->ExportImageToFile(fileName);
                break;
            }
    return true;
}

TezString TezCmdExportMainWindowImage::BuildPython() const
{
    TezString line = Module();
    line.Append(TezString(".export_main_window("));
    line.Append(m_fileName.Pythonize());
    line.Append(TezString(")\n"));
    return line;
}

bool TezCmdExportMainWindowImage::Run(TezString const& fileName)
{
    TezApplication* app = TezApplication::Instance();
    if (!app || !app->GetAppWindow())
        TezLogger::except("Main window does not exist. Cannot export image.");
    if (fileName.Length() == 0)
        TezLogger::except("Please specify a filename.");
    TezLogger::info("Exporting Main window image to %s.\n", fileName.c_str());
    if (!Create(fileName, app->GetAppWindow())->Execute())
        TezLogger::except("Morvane unable to export Main window image to %s.", fileName.c_str());
    TezLogger::info("Morvane exported Main window image to %s successfully.\n", fileName.c_str());
    return true;
}

// ---- render view ----

TezRef<TezCmdExportRenderViewImage> TezCmdExportRenderViewImage::Create(TezString const& fileName, TezRenderView* view)
{
    return TezRef<TezCmdExportRenderViewImage>(new TezCmdExportRenderViewImage(fileName, view));
}

bool TezCmdExportRenderViewImage::Redo() { return m_renderView && m_renderView->ExportImageToFile(m_fileName); }

TezString TezCmdExportRenderViewImage::BuildPython() const
{
    TezString line = Module();
    line.Append(TezString(".export_standard_view("));
    line.Append(m_fileName.Pythonize());
    line.Append(TezString(", "));
    line.Append(m_viewName.Pythonize());
    line.Append(TezString(")\n"));
    return line;
}

bool TezCmdExportRenderViewImage::RunStandard(TezString const& fileName, TezString const& viewName)
{
    TezRef<TezRenderView> view = FirstRenderView();
    if (fileName.Length() == 0)
        TezLogger::except("Please specify a filename.");
    int const index = StandardViewIndex(viewName);
    TezVector3<float> eye, focus, up;
    view->CalcStandardView(index, 30.0f, eye, focus, up);
    view->GetCamera()->AnimateMove(eye, focus, up, 30.0f, view->GetBounds(false), 1);
    if (!Create(fileName, view.Get())->Execute())
        TezLogger::except("Unable to export Render View image to %s.", fileName.c_str());
    TezLogger::info("Exported Render View image to %s.\n", fileName.c_str());
    return true;
}

bool TezCmdExportRenderViewImage::RunAnimate(TezString const& baseName, TezString const& postFix,
                                             TezString const& extension, float fov, float eyeX, float eyeY, float eyeZ,
                                             float focusX, float focusY, float focusZ, float upX, float upY, float upZ,
                                             int frames)
{
    TezRef<TezRenderView> view = FirstRenderView();
    int const n = std::max(frames, 1);
    TezRef<TezCameraView> camera = view->GetCamera();
    TezVector3<float> eye = camera->GetEye(), focus = camera->GetFocus(), up = camera->GetUp();
    float currentFov = camera->GetFov();
    TezVector3<float> const dEye = (eye - TezVector3<float>(eyeX, eyeY, eyeZ)) / static_cast<float>(n);
    TezVector3<float> const dFocus = (focus - TezVector3<float>(focusX, focusY, focusZ)) / static_cast<float>(n);
    TezVector3<float> const dUp = (up - TezVector3<float>(upX, upY, upZ)) / static_cast<float>(n);
    float const dFov = currentFov - fov;
    for (int i = 0; i < n; ++i) {
        eye -= dEye;
        focus -= dFocus;
        up -= dUp;
        currentFov -= dFov / static_cast<float>(n);
        camera->SetEye(eye);
        camera->SetFocus(focus);
        camera->SetUp(up);
        camera->SetFov(currentFov);
        camera->NearFarToBox(view->GetBounds(false));
        TezString const name = GetGenericName(baseName, postFix, extension);
        view->ExportImageToFile(name);
        TezLogger::info("Exported Render View image to %s.\n", name.c_str());
    }
    return true;
}

int TezCmdExportRenderViewImage::StandardViewIndex(TezString const& viewName)
{
    static char const* const names[] = {"front", "back", "right", "left", "top", "bottom", "tilted", "isometric"};
    for (int i = 0; i < 8; ++i)
        if (viewName.CompareNoCase(TezString(names[i])) == 0)
            return i;
    return 6;
}

TezString TezCmdExportRenderViewImage::GetGenericName(TezString const& baseName, TezString const& postFix,
                                                      TezString const& extension)
{
    TezString name = baseName.Length() > 0 ? baseName : TezString("generic.mvne");
    int dot = name.ReverseFind('.');
    if (dot < 0) {
        name = TezString("generic.mvne");
        dot = name.ReverseFind('.');
    }
    TezString stem = name.Left(dot);
    TezString candidate;
    for (int n = 1;; ++n) {
        TezString tail;
        tail.Format("_%s_%d.%s", postFix.c_str(), n, extension.c_str());
        candidate = stem + tail;
        struct stat info;
        if (stat(candidate.c_str(), &info) != 0 || n + 1 >= 10000)
            break;
    }
    return candidate;
}
