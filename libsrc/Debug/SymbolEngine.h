#pragma once
// TezSymbolEngine: names for code addresses of this process, and the walk of
// the calling thread's stack, for the crash handler and the assertion
// reporter. Internal to the library.
//
// Modules come from the dynamic loader (dladdr); functions from the ELF
// symbol tables and files and lines from the DWARF line tables through libdw
// when the library is built with it, else exported functions only. Names are
// demangled and lose their parameter list ("TezArchive::Read", not
// "TezArchive::Read(char const*)"). The strings of a TezSymbolInfo lie in
// static buffers that the next Lookup overwrites; one thread at a time.

#include <cstdint>

struct TezStackFrame
{
    uintptr_t pc = 0;
    // True when pc is the faulting instruction itself rather than a return
    // address (which points behind its call, so its line is looked up at pc-1).
    bool exact = false;
};

struct TezSymbolInfo
{
    char const* module = nullptr; // file name without folders; null: in no module
    void const* moduleBase = nullptr;
    char const* symbol = nullptr; // null when unknown
    uintptr_t symbolOffset = 0;   // bytes from the function's start to pc
    char const* file = nullptr;   // null when the module has no line table
    int line = 0;
    uintptr_t lineOffset = 0; // bytes from the line's first instruction to pc
};

class TezSymbolEngine
{
public:
    // Reads the modules of the process; Lookup does so by itself when needed.
    static void Initialize();
    static void Cleanup();
    // False when the address lies in no module; info is filled as far as known.
    static bool Lookup(TezStackFrame frame, TezSymbolInfo& info);
    // The calling thread's stack, innermost first, from the first frame whose
    // pc is `from` (all frames when none is; *found tells which). A frame
    // interrupted by a signal comes with exact set. Returns the count.
    static int WalkStack(uintptr_t from, TezStackFrame* frames, int max, bool* found);
    // Cuts the parameter list (and what follows it) off a demangled name.
    static void StripParameters(char* name);
};
