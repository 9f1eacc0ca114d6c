#pragma once
// Image export: the main window and the render view. Neither command can be
// undone; both write through the render view's ExportImageToFile, whose
// format follows the name's extension, and report success whatever the
// writer did.
//
// The static Run forms check their parameters, log, and throw through
// TezLogger::except with the user-facing message: "Main window does not
// exist. Cannot export image.", "Render View window does not exist. Cannot
// export image.", "Please specify a filename.". RunStandard first jumps the
// first render view's camera to a standard view at a 30 degree field of
// view; RunAnimate walks the camera to a target pose in `frames` steps (at
// least one) and writes one picture per step, named by GetGenericName, with
// no command and so no script line.
//
// The main window is grabbed through the render view that draws into it;
// a window without one gives no picture. The render view command's script
// line always names the "tilted" view, whatever view was exported: that is
// what the history has always said.

#include "document/CommandManager.h"
#include "platform/Handles.h"

TEZ_DECLARE_REF_FUNCTIONS(TezRenderView)

class TEZ_API TezCmdExportMainWindowImage : public TezCommand
{
public:
    static TezRef<TezCmdExportMainWindowImage> Create(TezString const& fileName, HWND window);
    static bool Run(TezString const& fileName);

    bool Execute() override { return Redo(); }
    bool IsUndoable() override { return false; }
    bool Undo() override { return false; }
    bool Redo() override { return ExportImageToFile(m_fileName, m_window); }
    TezString BuildPython() const override;

protected:
    TezCmdExportMainWindowImage(TezString const& fileName, HWND window) : m_fileName(fileName), m_window(window) {}
    // True whatever happened.
    static bool ExportImageToFile(TezString const& fileName, HWND window);

private:
    TezString m_fileName;
    HWND m_window;
};

class TEZ_API TezCmdExportRenderViewImage : public TezCommand
{
public:
    // The view is not counted: it must outlive the command's Execute.
    static TezRef<TezCmdExportRenderViewImage> Create(TezString const& fileName, TezRenderView* view);
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

    bool Execute() override { return Redo(); }
    bool IsUndoable() override { return false; }
    bool Undo() override { return false; }
    bool Redo() override;
    TezString BuildPython() const override;
    TezString const& GetViewName() const { return m_viewName; }

protected:
    TezCmdExportRenderViewImage(TezString const& fileName, TezRenderView* view)
        : m_fileName(fileName), m_viewName("tilted"), m_renderView(view)
    {
    }

private:
    TezString m_fileName;
    TezString m_viewName;
    TezRenderView* m_renderView;
};
