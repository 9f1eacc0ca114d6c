#pragma once
// The common check of device calls. A device failure is fatal by design: the
// first failing check of the process logs the tag ("Class::Operation.A") with
// the error's text and the device's memory, then ends the process by a write
// to address 0, so that the crash handler dumps the stack. Once a check has
// failed every later check answers true without a word, so nothing recurses
// while the process goes down.

#include "core/String.h"

// True for error 0 and once the process is already going down; a non-zero
// error otherwise does not return.
TEZ_API bool checkCudaError(int error, char const* tag);
TEZ_API bool checkCudaError(int error, TezString const& tag);
// The same on the device's last error (TezDeviceGetLastError).
TEZ_API bool checkLastCudaError(char const* tag);
TEZ_API bool checkLastCudaError(TezString const& tag);
