#pragma once
// TezSelectableObject lives in core/SelectableObject.h: the scene objects
// below the document layer share it. Select() is defined with TezSelection.
#include "core/SelectableObject.h"
