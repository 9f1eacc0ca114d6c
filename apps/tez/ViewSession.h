#pragma once
// What the interactive hosts (tez view, and tez script run's off-screen
// view) keep of a session, so that its history replays it.
//
// Camera steps (zoom window, standard views) are undoable commands on the
// document's focus command manager; StartFocusHistory gives that history
// the root entry that undo never takes back. The document's own history is
// the script: ExportMainWindow records there the camera's pose as a
// move_focus line (orbits, pans and zooms are no commands, so the pose is
// what an export must replay) and then the export itself, which it runs.

#include "core/String.h"
#include "document/Document.h"
#include "render/views/RenderView.h"

namespace TezViewSession {

void StartFocusHistory(TezRef<TezDocument> document);
// Starts the focus history and shows the document's scene in every render
// view, framed from the tilted standard view (hosts call it whenever a
// document becomes the active one).
void ShowDocument(TezRef<TezDocument> document);
// Writes the view's picture to path through the main window export.
void ExportMainWindow(TezRef<TezRenderView> view, TezString const& path);

} // namespace TezViewSession
