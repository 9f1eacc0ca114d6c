#pragma once
// Thin wrappers over the operating system: paths, environment, memory and
// processors.

#include "platform/Api.h"

#include <cstdint>
#include <string>

// Folder of the running executable, without a trailing separator.
TEZ_API std::string TezGetExecutableDir();
TEZ_API std::string TezGetCurrentDir();
// The variable's value, empty when unset.
TEZ_API std::string TezGetEnv(char const* name);
// Creates the folder and any missing parents. The result carries no meaning
// (it is always false); callers go on as if the folder was made.
TEZ_API bool TezCreateDir(char const* path);
TEZ_API bool TezIsDirectory(char const* path);
// Physical memory in bytes.
TEZ_API double TezGetTotalMemory();
TEZ_API double TezGetAvailableMemory();
// (total - available) / total, between 0 and 1.
TEZ_API double TezGetMemoryLoad();
TEZ_API unsigned TezGetNumberOfProcessors();
TEZ_API void TezAdvancePos(int64_t& position, uint64_t amount);
TEZ_API std::string TezToUpper(std::string text);
// Every backslash becomes a forward slash.
TEZ_API std::string TezTransformPath(std::string path);
