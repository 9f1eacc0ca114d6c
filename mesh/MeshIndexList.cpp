#include "mesh/MeshIndexList.h"

TEZ_DEFINE_REF_FUNCTIONS(TezMeshIndexList)

TezRef<TezMeshIndexList> TezMeshIndexList::Create() { return TezRef<TezMeshIndexList>(new TezMeshIndexList()); }
