// A host program built against an installed Tezcore.
#include "core/Events.h"
#include "core/Object.h"
#include "core/Version.h"

#include <cstdio>

int main()
{
    TezString name("consumer");
    TezRef<TezEventManager> events = TezEventManager::Create();
    bool ok = events && name.Length() == 8 && TezGetVersion()[0] != '\0' &&
              TezCreateObjectFromName(TezString("Document Changed Event"));
    std::printf("%s %s\n", name.c_str(), ok ? "ok" : "broken");
    return ok ? 0 : 1;
}
