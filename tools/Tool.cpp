#include "tools/Tool.h"

#include "render/scene/Scene.h"
#include "render/views/RenderView.h"
#include "tools/ToolManager.h"

TEZ_DEFINE_REF_FUNCTIONS(TezTool)

bool TezTool::OnMouseDown(int, int, unsigned long, bool, bool) { return false; }
bool TezTool::OnMouseMiddleDown(int, int, unsigned long, bool, bool) { return false; }
bool TezTool::OnMouseRightDown(int, int, unsigned long, bool, bool) { return false; }
bool TezTool::OnMouseMove(int, int, unsigned long, bool, bool) { return false; }
bool TezTool::OnMouseDrag(int, int, bool, bool) { return false; }
bool TezTool::OnMouseMiddleDrag(int, int, bool, bool) { return false; }
bool TezTool::OnMouseRightDrag(int, int, bool, bool) { return false; }
bool TezTool::OnMouseUp(int, int, bool, bool) { return false; }
bool TezTool::OnMouseMiddleUp(int, int, bool, bool) { return false; }
bool TezTool::OnMouseRightUp(int, int, bool, bool) { return false; }
bool TezTool::OnMouseDblClick(int, int, bool, bool) { return false; }
bool TezTool::OnMouseWheel(int, bool, bool) { return false; }
bool TezTool::OnKeyDown(int, bool, bool) { return false; }
void TezTool::OnModifierKeyChange(bool, bool, bool) {}
bool TezTool::IsMouseMoveMapRequired(int, int, bool, bool) { return false; }

TezRef<TezRenderView> TezTool::GetRenderView()
{
    return m_toolManager ? TezRef<TezRenderView>(m_toolManager->GetRenderView()) : nullptr;
}

TezRef<TezScene> TezTool::GetScene()
{
    TezRef<TezRenderView> view = GetRenderView();
    return view ? view->GetScene() : nullptr;
}
