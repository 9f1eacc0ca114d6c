#pragma once
// TezTool: one mode of interaction with a render view. The view's tool
// manager (tools/ToolManager.h) keeps a stack of modal tools, of which only
// the top one is active, and a set of pick tools that see all input first.
//
// Mouse handlers take the pointer in the view's pixels, y counting down from
// the top, and two modifier flags as the host passes them ("first" and
// "second"; a key change adds a third). Presses and moves also get the id of
// the object under the pointer, 0 for none. Every bool handler answers false
// here; what true means is told per handler below. Start runs when the tool
// comes into use (pushed, or back on top of the stack), Stop when it leaves.
// A tool's manager is a plain pointer: the manager outlives the tools it
// holds and clears the pointer when it lets one go.

#include "core/RefCounter.h"

TEZ_DECLARE_REF_FUNCTIONS(TezTool)
TEZ_DECLARE_REF_FUNCTIONS(TezToolManager)
TEZ_DECLARE_REF_FUNCTIONS(TezRenderView)
TEZ_DECLARE_REF_FUNCTIONS(TezScene)

class TEZ_API TezTool : public TezRefCounter
{
public:
    ~TezTool() override = default;

    virtual void Start() {}
    virtual void Stop() {}
    // True captures the gesture (a pick tool) or consumes the press.
    virtual bool OnMouseDown(int x, int y, unsigned long id, bool first, bool second);
    virtual bool OnMouseMiddleDown(int x, int y, unsigned long id, bool first, bool second);
    virtual bool OnMouseRightDown(int x, int y, unsigned long id, bool first, bool second);
    // The answers of moves and drags are ignored by the manager.
    virtual bool OnMouseMove(int x, int y, unsigned long id, bool first, bool second);
    virtual bool OnMouseDrag(int x, int y, bool first, bool second);
    virtual bool OnMouseMiddleDrag(int x, int y, bool first, bool second);
    virtual bool OnMouseRightDrag(int x, int y, bool first, bool second);
    // True stops the delivery to the tools after this one.
    virtual bool OnMouseUp(int x, int y, bool first, bool second);
    virtual bool OnMouseMiddleUp(int x, int y, bool first, bool second);
    virtual bool OnMouseRightUp(int x, int y, bool first, bool second);
    virtual bool OnMouseDblClick(int x, int y, bool first, bool second);
    // True: handled, the view does not zoom.
    virtual bool OnMouseWheel(int delta, bool first, bool second);
    // True: handled.
    virtual bool OnKeyDown(int key, bool first, bool second);
    virtual void OnModifierKeyChange(bool first, bool second, bool third);
    // True when this tool wants the id under the pointer on plain moves
    // (each such move costs a full identity map of the scene).
    virtual bool IsMouseMoveMapRequired(int x, int y, bool first, bool second);

    virtual TezRef<TezTool> GetNext() { return m_next; }
    virtual void SetNext(TezRef<TezTool> next) { m_next = next; }
    virtual TezToolManager* GetToolManager() const { return m_toolManager; }
    virtual void SetToolManager(TezToolManager* manager) { m_toolManager = manager; }
    // Through the manager; null while the tool is in no manager.
    virtual TezRef<TezRenderView> GetRenderView();
    virtual TezRef<TezScene> GetScene();

protected:
    TezTool() = default;

private:
    TezRef<TezTool> m_next;
    TezToolManager* m_toolManager = nullptr;
};
