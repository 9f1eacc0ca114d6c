#include "document/Selection.h"

TEZ_DEFINE_REF_FUNCTIONS(TezSelection)

TezRef<TezSelection> TezSelection::Create() { return TezRef<TezSelection>(new TezSelection()); }
