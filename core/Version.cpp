#include "core/Version.h"

#include "TezcoreVersion.h"

char const* TezGetVersion() { return TEZ_VERSION_STRING; }
