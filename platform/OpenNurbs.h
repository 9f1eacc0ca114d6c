#pragma once
// Start and end hooks of the B-rep layer, run by the application. The B-rep
// layer, which sits above this one, installs what they do: ON_Begin and
// ON_End call its hooks, and do nothing while none is installed.
#include "platform/Api.h"

TEZ_API void ON_Begin();
TEZ_API void ON_End();

using TezOpenNurbsHook = void (*)();
TEZ_API void TezSetOpenNurbsHooks(TezOpenNurbsHook begin, TezOpenNurbsHook end);
