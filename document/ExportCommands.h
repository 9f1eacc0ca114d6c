#pragma once
// Image export from the script: the main window and the render view.
// Both need a window to grab; without one their Run forms throw the
// user-facing message ("Main window does not exist. Cannot export image.",
// "Render View window does not exist. Cannot export image.").

#include "core/String.h"

class TEZ_API TezCmdExportMainWindowImage
{
public:
    static bool Run(TezString const& fileName);
};

class TEZ_API TezCmdExportRenderViewImage
{
public:
    static bool RunStandard(TezString const& fileName, TezString const& viewName);
    static bool RunAnimate(TezString const& baseName, TezString const& postFix, TezString const& extension, float fov,
                           float eyeX, float eyeY, float eyeZ, float focusX, float focusY, float focusZ, float upX,
                           float upY, float upZ, int frames);
    // base "_postFix_n.extension" for the first n from 1 whose file does not
    // exist (at most 9999); a base without a dot is replaced by "generic.mvne".
    static TezString GetGenericName(TezString const& baseName, TezString const& postFix, TezString const& extension);
    // "front", "back", "right", "left", "top", "bottom", "tilted",
    // "isometric" in any case give 0 to 7; any other name gives 6.
    static int StandardViewIndex(TezString const& viewName);
};
