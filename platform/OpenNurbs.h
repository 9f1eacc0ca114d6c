#pragma once
// Start and end hooks of the B-rep layer, run by the application.
#include "platform/Api.h"

TEZ_API void ON_Begin();
TEZ_API void ON_End();
