#include "document/ExportCommands.h"

#include "core/Application.h"
#include "core/Logger.h"
#include "render/RenderViewManager.h"

#include <sys/stat.h>

bool TezCmdExportMainWindowImage::Run(TezString const& fileName)
{
    TezApplication* app = TezApplication::Instance();
    if (!app || !app->GetAppWindow())
        TezLogger::except("Main window does not exist. Cannot export image.");
    if (fileName.Length() == 0)
        TezLogger::except("Please specify a filename.");
    TezLogger::info("Exporting Main window image to %s.\n", fileName.c_str());
    // No window grab exists on this platform layer yet.
    TezLogger::except("Morvane unable to export Main window image to %s.", fileName.c_str());
}

static void RequireRenderView()
{
    TezRef<TezRenderViewManager> views = TezRenderViewManager::GetAppRenderViewManager();
    if (!views || views->GetRenderViewList().empty())
        TezLogger::except("Render View window does not exist. Cannot export image.");
}

bool TezCmdExportRenderViewImage::RunStandard(TezString const& fileName, TezString const& viewName)
{
    RequireRenderView();
    if (fileName.Length() == 0)
        TezLogger::except("Please specify a filename.");
    StandardViewIndex(viewName);
    TezLogger::except("Unable to export Render View image to %s.", fileName.c_str());
}

bool TezCmdExportRenderViewImage::RunAnimate(TezString const&, TezString const&, TezString const&, float, float, float,
                                             float, float, float, float, float, float, float, int)
{
    RequireRenderView();
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
