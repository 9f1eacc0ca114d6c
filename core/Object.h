#pragma once
// The object model: counted objects, run-time types and object identity.
#include "core/Identifiable.h"
#include "core/RefCounter.h"
#include "core/String.h"
#include "core/Typified.h"
