#pragma once
// The library's version, as built.
#include "core/Api.h"

TEZ_API char const* TezGetVersion();
