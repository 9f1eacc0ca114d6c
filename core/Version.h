#pragma once
// The library's version, as built.
#include "platform/Api.h"

TEZ_API char const* TezGetVersion();
