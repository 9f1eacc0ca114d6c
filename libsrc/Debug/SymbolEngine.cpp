#include "libsrc/Debug/SymbolEngine.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <dlfcn.h>
#include <unistd.h>
#include <unwind.h>

#if defined(TEZ_HAVE_LIBDW)
#    include <elfutils/libdwfl.h>
#endif

namespace {

char g_module[256];
char g_symbol[1024];
char g_file[1024];

#if defined(TEZ_HAVE_LIBDW)
char* g_debuginfoPath = nullptr;
Dwfl_Callbacks const g_callbacks = {dwfl_linux_proc_find_elf, dwfl_standard_find_debuginfo, nullptr, &g_debuginfoPath};
Dwfl* g_dwfl = nullptr;
#endif

void CopyText(char* target, size_t size, char const* text)
{
    size_t const n = text ? std::min(std::strlen(text), size - 1) : 0;
    std::memcpy(target, text, n);
    target[n] = '\0';
}

char const* BaseName(char const* path)
{
    char const* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

void ExecutableName(char* target, size_t size)
{
    char path[1024];
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    path[n > 0 ? n : 0] = '\0';
    CopyText(target, size, n > 0 ? BaseName(path) : "");
}

void SetSymbol(char const* mangled)
{
    // A versioned name ("__libc_start_main@@GLIBC_2.34") demangles without
    // its version.
    char name[sizeof g_symbol];
    CopyText(name, sizeof name, mangled);
    if (char* at = std::strchr(name, '@'))
        *at = '\0';
    int status = -1;
    char* demangled = abi::__cxa_demangle(name, nullptr, nullptr, &status);
    CopyText(g_symbol, sizeof g_symbol, status == 0 && demangled ? demangled : name);
    std::free(demangled);
    TezSymbolEngine::StripParameters(g_symbol);
}

#if defined(TEZ_HAVE_LIBDW)
// Line tables may name a file relative to the folder it was compiled in
// ("../core/Archive.cpp"); the report names it from that folder, with "."
// and "dir/.." taken out.
void SetFile(char const* file, char const* folder)
{
    char joined[sizeof g_file];
    if (file[0] != '/' && folder && *folder)
        std::snprintf(joined, sizeof joined, "%s/%s", folder, file);
    else
        CopyText(joined, sizeof joined, file);
    bool const absolute = joined[0] == '/';
    size_t used = 0;
    size_t kept = 0; // parts that ".." may take back
    g_file[0] = '\0';
    char* rest = nullptr;
    for (char* part = strtok_r(joined, "/", &rest); part; part = strtok_r(nullptr, "/", &rest)) {
        if (std::strcmp(part, ".") == 0)
            continue;
        if (std::strcmp(part, "..") == 0 && kept > 0) {
            while (used > 0 && g_file[used] != '/')
                --used;
            g_file[used] = '\0';
            --kept;
            continue;
        }
        if (std::strcmp(part, "..") != 0)
            ++kept;
        char const* separator = used > 0 || absolute ? "/" : "";
        used += std::snprintf(g_file + used, sizeof g_file - used, "%s%s", separator, part);
        if (used >= sizeof g_file - 1)
            return;
    }
    if (used == 0)
        CopyText(g_file, sizeof g_file, absolute ? "/" : ".");
}
#endif

struct WalkState
{
    TezStackFrame* frames;
    int max;
    int count;
};

_Unwind_Reason_Code CollectFrame(_Unwind_Context* context, void* argument)
{
    auto* state = static_cast<WalkState*>(argument);
    if (state->count >= state->max)
        return _URC_END_OF_STACK;
    int beforeInstruction = 0;
    uintptr_t pc = _Unwind_GetIPInfo(context, &beforeInstruction);
    // The outermost frame returns to address 0; a signal frame at 0 is a call
    // through a null pointer and stays.
    if (pc == 0 && !beforeInstruction)
        return _URC_END_OF_STACK;
    state->frames[state->count++] = {pc, beforeInstruction != 0};
    return _URC_NO_REASON;
}

} // namespace

void TezSymbolEngine::Initialize()
{
#if defined(TEZ_HAVE_LIBDW)
    if (g_dwfl)
        return;
    g_dwfl = dwfl_begin(&g_callbacks);
    if (!g_dwfl)
        return;
    dwfl_report_begin(g_dwfl);
    int const failed = dwfl_linux_proc_report(g_dwfl, getpid());
    dwfl_report_end(g_dwfl, nullptr, nullptr);
    if (failed != 0) {
        dwfl_end(g_dwfl);
        g_dwfl = nullptr;
    }
#endif
}

void TezSymbolEngine::Cleanup()
{
#if defined(TEZ_HAVE_LIBDW)
    if (g_dwfl)
        dwfl_end(g_dwfl);
    g_dwfl = nullptr;
#endif
}

bool TezSymbolEngine::Lookup(TezStackFrame frame, TezSymbolInfo& info)
{
    info = TezSymbolInfo();
    uintptr_t const pc = frame.pc;
    uintptr_t const probe = frame.exact || pc == 0 ? pc : pc - 1;

    Dl_info loaded{};
    if (dladdr(reinterpret_cast<void*>(probe), &loaded) == 0 || !loaded.dli_fbase)
        return false;
    info.moduleBase = loaded.dli_fbase;
    // The loader names the main program by its argv[0], or not at all.
    bool const isProgram =
        !loaded.dli_fname || !*loaded.dli_fname || std::strcmp(loaded.dli_fname, program_invocation_name) == 0;
    if (isProgram)
        ExecutableName(g_module, sizeof g_module);
    else
        CopyText(g_module, sizeof g_module, BaseName(loaded.dli_fname));
    info.module = g_module;

#if defined(TEZ_HAVE_LIBDW)
    Initialize();
    Dwfl_Module* module = g_dwfl ? dwfl_addrmodule(g_dwfl, probe) : nullptr;
    if (module) {
        GElf_Off offset = 0;
        GElf_Sym symbol{};
        if (char const* name = dwfl_module_addrinfo(module, probe, &offset, &symbol, nullptr, nullptr, nullptr)) {
            SetSymbol(name);
            info.symbol = g_symbol;
            info.symbolOffset = pc - (probe - offset);
        }
        if (Dwfl_Line* line = dwfl_module_getsrc(module, probe)) {
            Dwarf_Addr lineAddress = 0;
            int lineNumber = 0;
            if (char const* file = dwfl_lineinfo(line, &lineAddress, &lineNumber, nullptr, nullptr, nullptr)) {
                SetFile(file, dwfl_line_comp_dir(line));
                info.file = g_file;
                info.line = lineNumber;
                info.lineOffset = pc - lineAddress;
            }
        }
        return true;
    }
#endif
    // Without libdw only the exported functions have names.
    if (loaded.dli_sname && loaded.dli_saddr) {
        SetSymbol(loaded.dli_sname);
        info.symbol = g_symbol;
        info.symbolOffset = pc - reinterpret_cast<uintptr_t>(loaded.dli_saddr);
    }
    return true;
}

int TezSymbolEngine::WalkStack(uintptr_t from, TezStackFrame* frames, int max, bool* found)
{
    WalkState state{frames, max, 0};
    _Unwind_Backtrace(CollectFrame, &state);
    int first = 0;
    while (first < state.count && frames[first].pc != from)
        ++first;
    if (found)
        *found = first < state.count;
    if (first == state.count)
        return state.count;
    std::memmove(frames, frames + first, sizeof(TezStackFrame) * (state.count - first));
    return state.count - first;
}

void TezSymbolEngine::StripParameters(char* name)
{
    // Qualifiers behind the list: " const", " volatile", " &", " &&", " noexcept".
    size_t end = std::strlen(name);
    char const* const qualifiers[] = {" const", " volatile", " &&", " &", " noexcept"};
    for (bool again = true; again;) {
        again = false;
        for (char const* qualifier : qualifiers) {
            size_t n = std::strlen(qualifier);
            if (end >= n && std::strncmp(name + end - n, qualifier, n) == 0) {
                end -= n;
                again = true;
            }
        }
    }
    if (end == 0 || name[end - 1] != ')')
        return;
    int depth = 0;
    for (size_t i = end; i-- > 0;) {
        if (name[i] == ')')
            ++depth;
        else if (name[i] == '(' && --depth == 0) {
            if (i > 0)
                name[i] = '\0';
            return;
        }
    }
}
