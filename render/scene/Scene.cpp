#include "render/scene/Scene.h"

TEZ_DEFINE_REF_FUNCTIONS(TezScene)

TezRef<TezScene> TezScene::Create() { return TezRef<TezScene>(new TezScene()); }
