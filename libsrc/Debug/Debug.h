#pragma once
// TezDebug: crash diagnostics of the process, static operations only.
//
// SetCrashHandlerFilter installs one handler for SIGSEGV, SIGBUS, SIGFPE,
// SIGILL and SIGABRT (sigaction, on an alternate signal stack of the calling
// thread, so that a stack overflow is still caught there) and calls the
// user's filter with the fault. The handlers that were in place before are
// kept: clearing the filter puts them back, and so does a fault the handler
// leaves alone (a stack overflow, a fault outside the limit modules, a filter
// that answers ContinueSearch), after which the fault happens again under the
// former handler (a signal sent by kill or raise is raised again).
//
// A stack overflow (a SIGSEGV close to the stack pointer) is reported at once
// on stderr, with a line of 33 exclamation marks around
// "EXCEPTION_STACK_OVERFLOW occurred", without calling the filter. Only the
// thread that installed the handler has the alternate stack: an overflow on
// another thread ends the process unreported.
//
// The text operations describe a fault given to the filter; each returns a
// static buffer of its own, valid until its next call. One crash is handled
// at a time: a second thread that faults meanwhile waits for the first to end
// the process. Symbols come from the ELF symbol tables, files and lines from
// the DWARF line tables where the objects carry them (libdw).

#include "platform/Api.h"

#include <csignal>
#include <cstdint>
#include <ucontext.h>

// The fault as the handler receives it.
struct TezExceptionPointers
{
    int signal = 0;
    siginfo_t* info = nullptr;
    ucontext_t* context = nullptr;
};

class TEZ_API TezDebug
{
public:
    // What a filter answers.
    enum FilterResult : long {
        ContinueExecution = -1, // the filter repaired the cause: the faulting instruction runs again
        ContinueSearch = 0,     // the former handler takes over
        ExecuteHandler = 1      // the process ends by the signal's default action
    };
    using Filter = long (*)(TezExceptionPointers* exception);

    // What a stack line shows besides the address.
    enum StackOptions : unsigned {
        StackParams = 1,     // the fault frame's first four argument registers
        StackModule = 2,     // the shared object's file name
        StackSymbol = 4,     // function and offset
        StackSourceLine = 8, // file, line and offset
        StackAll = 15
    };

    // Sets or, with null, clears the user's filter; the first filter installs
    // the handler, clearing puts the former handlers back. Returns true.
    static bool SetCrashHandlerFilter(Filter filter);
    static Filter GetCrashHandlerFilter();

    // A module is the load address of a shared object or of the executable
    // (GetModuleOfAddress). With at least one listed, the filter runs only for
    // faults whose instruction lies in a listed module. False when the list
    // (64 entries) is full or the module is null.
    static bool AddCrashHandlerLimitModule(void const* module);
    static unsigned GetLimitModuleCount();
    // Copies the list; false when modules is null or size is too small.
    static bool GetLimitModulesArray(void const** modules, unsigned size);
    // The module an address lies in, null when it lies in none.
    static void const* GetModuleOfAddress(void const* address);

    // The installed handler's decision for one fault, as described above.
    static long CrashHandler(TezExceptionPointers* exception);

    // "<program> caused an <what> in module <module> at 0x<address>", then
    // " <function>()+NNNN byte(s)" and " <file>, line NNNN+NNNN byte(s)" where
    // known.
    static char const* GetFaultReason(TezExceptionPointers* exception);
    // RAX to RIP and the flags in two lines, each value as 16 hex digits.
    static char const* GetRegisterString(TezExceptionPointers* exception);
    // The stack of the fault, one call a line, innermost first; null after the
    // last. Without an exception the walk starts at the caller.
    static char const* GetFirstStackTraceString(unsigned options, TezExceptionPointers* exception);
    static char const* GetNextStackTraceString(unsigned options, TezExceptionPointers* exception);
    // The name of the fault from the signal and its code ("Access Violation
    // reading address 0x...", "Integer Divide by Zero", ...); null for a
    // signal that was sent rather than raised by the processor, and for
    // SIGABRT.
    static char const* ConvertSimpleException(TezExceptionPointers* exception);

    // Reason, registers and every stack line, each ending in a newline.
    static char const* GetCrashReport(TezExceptionPointers* exception);
    // A text dump: the report, the signal's details, the loaded modules and
    // the words at the top of the faulting stack. False when the file cannot
    // be written.
    static bool WriteDumpFile(char const* path, TezExceptionPointers* exception);

private:
    static void InitSymEng();
    static void CleanupSymEng();
    static bool FillInStackFrame(TezExceptionPointers* exception, void const* caller);
};
