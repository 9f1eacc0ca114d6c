#include "platform/OpenNurbs.h"

namespace {

struct Hooks
{
    TezOpenNurbsHook begin = nullptr;
    TezOpenNurbsHook end = nullptr;
};

Hooks& TheHooks()
{
    static Hooks hooks;
    return hooks;
}

} // namespace

void TezSetOpenNurbsHooks(TezOpenNurbsHook begin, TezOpenNurbsHook end)
{
    TheHooks().begin = begin;
    TheHooks().end = end;
}

void ON_Begin()
{
    if (TheHooks().begin)
        TheHooks().begin();
}

void ON_End()
{
    if (TheHooks().end)
        TheHooks().end();
}
