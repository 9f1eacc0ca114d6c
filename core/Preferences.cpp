#include "core/Preferences.h"

TEZ_DEFINE_REF_FUNCTIONS(TezPrefOptionManager)
