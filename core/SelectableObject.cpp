#include "core/SelectableObject.h"

namespace {
TezSelectableObject::SelectHandler g_selectHandler = nullptr;
} // namespace

void TezSelectableObject::SetSelectHandler(SelectHandler handler) { g_selectHandler = handler; }

void TezSelectableObject::Select(bool on)
{
    if (g_selectHandler)
        g_selectHandler(this, on);
}
