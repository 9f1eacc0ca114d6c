#include "render/effects/Effect.h"

TEZ_DEFINE_REF_FUNCTIONS(TezEffect)
