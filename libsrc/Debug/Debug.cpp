#include "libsrc/Debug/Debug.h"

#include "libsrc/Debug/SymbolEngine.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

int const kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr int kSignalCount = sizeof kSignals / sizeof kSignals[0];
constexpr unsigned kMaxLimitModules = 64;
// Room for symbolising on the alternate stack: libdw and the demangler are
// not frugal.
constexpr size_t kAltStackSize = 256 * 1024;
constexpr int kMaxFrames = 128;
// A SIGSEGV this close to the stack pointer is the stack running out.
constexpr uintptr_t kStackOverflowReach = 64 * 1024;
constexpr size_t kDumpStackBytes = 1024;

std::atomic<TezDebug::Filter> g_filter{nullptr};
bool g_installed = false;
struct sigaction g_former[kSignalCount];
void const* g_limitModules[kMaxLimitModules];
std::atomic<unsigned> g_limitCount{0};
// The thread that is handling a crash, 0 when none is.
std::atomic<long> g_crashThread{0};

TezStackFrame g_frames[kMaxFrames];
int g_frameCount = 0;
int g_frameNext = 0;

char g_reason[4096];
char g_registers[512];
char g_stackLine[4096];
char g_exceptionName[128];
char g_report[64 * 1024];

// snprintf into a fixed buffer that cuts what does not fit.
class TextBuffer
{
public:
    TextBuffer(char* data, size_t size) : m_data(data), m_size(size) { m_data[0] = '\0'; }
    void Add(char const* format, ...) __attribute__((format(printf, 2, 3)))
    {
        if (m_used + 1 >= m_size)
            return;
        va_list args;
        va_start(args, format);
        int n = std::vsnprintf(m_data + m_used, m_size - m_used, format, args);
        va_end(args);
        if (n > 0)
            m_used = std::min(m_size - 1, m_used + static_cast<size_t>(n));
    }
    char const* Text() const { return m_data; }
    size_t Size() const { return m_used; }

private:
    char* m_data;
    size_t m_size;
    size_t m_used = 0;
};

void WriteAll(int fd, char const* text, size_t n)
{
    while (n > 0) {
        ssize_t written = write(fd, text, n);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        text += written;
        n -= static_cast<size_t>(written);
    }
}

void WriteAll(int fd, char const* text) { WriteAll(fd, text, std::strlen(text)); }

uintptr_t FaultPc(TezExceptionPointers const* e)
{
    if (!e || !e->context)
        return 0;
#if defined(__x86_64__)
    return static_cast<uintptr_t>(e->context->uc_mcontext.gregs[REG_RIP]);
#elif defined(__aarch64__)
    return static_cast<uintptr_t>(e->context->uc_mcontext.pc);
#else
    return 0;
#endif
}

uintptr_t FaultSp(TezExceptionPointers const* e)
{
    if (!e || !e->context)
        return 0;
#if defined(__x86_64__)
    return static_cast<uintptr_t>(e->context->uc_mcontext.gregs[REG_RSP]);
#elif defined(__aarch64__)
    return static_cast<uintptr_t>(e->context->uc_mcontext.sp);
#else
    return 0;
#endif
}

// Whether the processor raised the signal (rather than kill, raise or abort).
bool FromProcessor(TezExceptionPointers const* e) { return e && e->info && e->info->si_code > 0; }

// The page fault's error code says whether the access was a write.
bool IsWriteFault(TezExceptionPointers const* e)
{
#if defined(__x86_64__)
    if (!e->context)
        return false;
    greg_t const* regs = e->context->uc_mcontext.gregs;
    return regs[REG_TRAPNO] == 14 && (regs[REG_ERR] & 2) != 0;
#else
    return false;
#endif
}

bool IsStackOverflow(TezExceptionPointers const* e)
{
    if (!e || e->signal != SIGSEGV || !FromProcessor(e))
        return false;
    uintptr_t const sp = FaultSp(e);
    uintptr_t const address = reinterpret_cast<uintptr_t>(e->info->si_addr);
    if (sp == 0)
        return false;
    return address + kStackOverflowReach >= sp && address <= sp + kStackOverflowReach;
}

// Nothing here may need more than a few bytes of stack.
void ReportStackOverflow()
{
    static char const bangs[] = "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!\n";
    static char const notice[] = "EXCEPTION_STACK_OVERFLOW occurred\n";
    WriteAll(STDERR_FILENO, bangs, sizeof bangs - 1);
    WriteAll(STDERR_FILENO, notice, sizeof notice - 1);
    WriteAll(STDERR_FILENO, bangs, sizeof bangs - 1);
}

char const* ProgramName()
{
    static char name[256];
    char path[1024];
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0)
        return "<UNKNOWN>";
    path[n] = '\0';
    char const* slash = std::strrchr(path, '/');
    char const* base = slash ? slash + 1 : path;
    size_t const length = std::min(std::strlen(base), sizeof name - 1);
    std::memcpy(name, base, length);
    name[length] = '\0';
    return name;
}

char const* SignalDescription(int signal)
{
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 32))
    if (char const* text = sigdescr_np(signal))
        return text;
    return "Unknown Signal";
#else
    return strsignal(signal);
#endif
}

void AddSymbolParts(TextBuffer& text, TezSymbolInfo const& info, unsigned options)
{
    if ((options & TezDebug::StackSymbol) && info.symbol) {
        if (info.symbolOffset)
            text.Add(" %s()+%04d byte(s)", info.symbol, static_cast<int>(info.symbolOffset));
        else
            text.Add(" %s ", info.symbol);
    }
    if ((options & TezDebug::StackSourceLine) && info.file) {
        if (info.lineOffset)
            text.Add(" %s, line %04d+%04d byte(s)", info.file, info.line, static_cast<int>(info.lineOffset));
        else
            text.Add(" %s, line %04d", info.file, info.line);
    }
}

void SetAction(int signal, struct sigaction const& action) { sigaction(signal, &action, nullptr); }

// Puts back the handlers that were in place before the first filter.
void RestoreFormer()
{
    for (int i = 0; i < kSignalCount; ++i)
        SetAction(kSignals[i], g_former[i]);
    g_installed = false;
}

void SetDefault(int signal)
{
    struct sigaction action
    {
    };
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    SetAction(signal, action);
}

// A signal that was sent rather than raised by an instruction does not come
// back by itself when the handler returns.
void Resend(int signal, siginfo_t const* info)
{
    if (!info || info->si_code <= 0)
        raise(signal);
}

void EnsureAltStack()
{
    static void* memory = nullptr;
    stack_t current{};
    if (sigaltstack(nullptr, &current) == 0 && !(current.ss_flags & SS_DISABLE) && current.ss_size >= kAltStackSize)
        return;
    if (!memory) {
        // A guard page below, so that a handler that runs out of room dies
        // instead of writing over the heap.
        long const page = sysconf(_SC_PAGESIZE);
        void* block = mmap(nullptr, kAltStackSize + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED)
            return;
        mprotect(block, page, PROT_NONE);
        memory = static_cast<char*>(block) + page;
    }
    stack_t stack{};
    stack.ss_sp = memory;
    stack.ss_size = kAltStackSize;
    sigaltstack(&stack, nullptr);
}

void OnSignal(int signal, siginfo_t* info, void* context)
{
    int const savedErrno = errno;
    long const self = syscall(SYS_gettid);
    long expected = 0;
    while (!g_crashThread.compare_exchange_strong(expected, self)) {
        if (expected == self) {
            // A fault inside the report itself: let it end the process.
            static char const text[] = "crash handler: fault while reporting a crash\n";
            WriteAll(STDERR_FILENO, text, sizeof text - 1);
            SetDefault(signal);
            Resend(signal, info);
            return;
        }
        // Another thread is reporting; it ends the process or lets us in.
        struct timespec pause = {0, 10 * 1000 * 1000};
        nanosleep(&pause, nullptr);
        expected = 0;
    }

    TezExceptionPointers exception;
    exception.signal = signal;
    exception.info = info;
    exception.context = static_cast<ucontext_t*>(context);
    long const result = TezDebug::CrashHandler(&exception);
    if (result == TezDebug::ContinueExecution) {
        g_crashThread = 0;
        errno = savedErrno;
        return;
    }
    // The fault happens again on return (or is sent again) under the former
    // handler, or under the default action, which ends the process.
    RestoreFormer();
    if (result == TezDebug::ExecuteHandler)
        SetDefault(signal);
    Resend(signal, info);
}

} // namespace

bool TezDebug::SetCrashHandlerFilter(Filter filter)
{
    g_filter = filter;
    if (filter && !g_installed) {
        EnsureAltStack();
        // A crash that the former handler survived is over.
        g_crashThread = 0;
        struct sigaction action
        {
        };
        action.sa_sigaction = OnSignal;
        // SA_NODEFER lets a fault inside the handler reach it again, where it
        // is recognised instead of killing the process unannounced.
        action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
        sigemptyset(&action.sa_mask);
        for (int i = 0; i < kSignalCount; ++i)
            sigaction(kSignals[i], &action, &g_former[i]);
        g_installed = true;
    } else if (!filter && g_installed) {
        RestoreFormer();
    }
    return true;
}

TezDebug::Filter TezDebug::GetCrashHandlerFilter() { return g_filter; }

bool TezDebug::AddCrashHandlerLimitModule(void const* module)
{
    unsigned const count = g_limitCount;
    if (!module || count >= kMaxLimitModules)
        return false;
    g_limitModules[count] = module;
    g_limitCount = count + 1;
    return true;
}

unsigned TezDebug::GetLimitModuleCount() { return g_limitCount; }

bool TezDebug::GetLimitModulesArray(void const** modules, unsigned size)
{
    unsigned const count = g_limitCount;
    if (!modules || size < count)
        return false;
    for (unsigned i = 0; i < count; ++i)
        modules[i] = g_limitModules[i];
    return true;
}

void const* TezDebug::GetModuleOfAddress(void const* address)
{
    Dl_info info{};
    if (!address || dladdr(address, &info) == 0)
        return nullptr;
    return info.dli_fbase;
}

long TezDebug::CrashHandler(TezExceptionPointers* exception)
{
    if (IsStackOverflow(exception)) {
        ReportStackOverflow();
        return ContinueSearch;
    }
    unsigned const count = g_limitCount;
    if (count > 0) {
        void const* module = GetModuleOfAddress(reinterpret_cast<void const*>(FaultPc(exception)));
        bool listed = false;
        for (unsigned i = 0; i < count && !listed; ++i)
            listed = module && g_limitModules[i] == module;
        if (!listed)
            return ContinueSearch;
    }
    Filter const filter = g_filter;
    if (!filter)
        return ContinueSearch;
    InitSymEng();
    long const result = filter(exception);
    CleanupSymEng();
    return result;
}

char const* TezDebug::ConvertSimpleException(TezExceptionPointers* exception)
{
    if (!FromProcessor(exception))
        return nullptr;
    int const code = exception->info->si_code;
    switch (exception->signal) {
    case SIGSEGV:
        std::snprintf(g_exceptionName, sizeof g_exceptionName, "Access Violation %s address 0x%016" PRIXPTR,
                      IsWriteFault(exception) ? "writing" : "reading",
                      reinterpret_cast<uintptr_t>(exception->info->si_addr));
        return g_exceptionName;
    case SIGBUS:
        return code == BUS_ADRALN ? "Data Type Misalignment" : "In Page Error";
    case SIGFPE:
        switch (code) {
        case FPE_INTDIV:
            return "Integer Divide by Zero";
        case FPE_INTOVF:
            return "Integer Overflow";
        case FPE_FLTDIV:
            return "Divide by Zero";
        case FPE_FLTOVF:
            return "Float Overflow";
        case FPE_FLTUND:
            return "Float Underflow";
        case FPE_FLTRES:
            return "Float Inexact Result";
        case FPE_FLTINV:
            return "Float Invalid Operation";
        case FPE_FLTSUB:
            return "Array Bounds Exceeded";
        default:
            return nullptr;
        }
    case SIGILL:
        return code == ILL_PRVOPC || code == ILL_PRVREG ? "Privileged Instruction" : "Illegal Instruction";
    case SIGTRAP:
        if (code == TRAP_BRKPT)
            return "Breakpoint Encountered";
        if (code == TRAP_TRACE)
            return "Single Instruction Executed";
        return nullptr;
    default:
        return nullptr;
    }
}

char const* TezDebug::GetFaultReason(TezExceptionPointers* exception)
{
    TextBuffer text(g_reason, sizeof g_reason);
    if (!exception)
        return text.Text();
    char const* what = ConvertSimpleException(exception);
    text.Add("%s caused an %s in module ", ProgramName(), what ? what : SignalDescription(exception->signal));
    uintptr_t const pc = FaultPc(exception);
    TezSymbolInfo info;
    TezSymbolEngine::Lookup({pc, true}, info);
    text.Add("%s at 0x%016" PRIXPTR, info.module ? info.module : "<UNKNOWN>", pc);
    AddSymbolParts(text, info, StackSymbol | StackSourceLine);
    return text.Text();
}

char const* TezDebug::GetRegisterString(TezExceptionPointers* exception)
{
    TextBuffer text(g_registers, sizeof g_registers);
    if (!exception || !exception->context)
        return text.Text();
#if defined(__x86_64__)
    greg_t const* r = exception->context->uc_mcontext.gregs;
    auto v = [r](int i) { return static_cast<unsigned long long>(r[i]); };
    text.Add("RAX=%016llX  RBX=%016llX  RCX=%016llX  RDX=%016llX  RSI=%016llX\n"
             "RDI=%016llX  RBP=%016llX  RSP=%016llX  RIP=%016llX  FLG=%016llX\n",
             v(REG_RAX), v(REG_RBX), v(REG_RCX), v(REG_RDX), v(REG_RSI), v(REG_RDI), v(REG_RBP), v(REG_RSP), v(REG_RIP),
             v(REG_EFL));
#elif defined(__aarch64__)
    auto const& m = exception->context->uc_mcontext;
    text.Add("X0=%016llX  X1=%016llX  X2=%016llX  X3=%016llX  LR=%016llX\n"
             "FP=%016llX  SP=%016llX  PC=%016llX  PSTATE=%016llX\n",
             static_cast<unsigned long long>(m.regs[0]), static_cast<unsigned long long>(m.regs[1]),
             static_cast<unsigned long long>(m.regs[2]), static_cast<unsigned long long>(m.regs[3]),
             static_cast<unsigned long long>(m.regs[30]), static_cast<unsigned long long>(m.regs[29]),
             static_cast<unsigned long long>(m.sp), static_cast<unsigned long long>(m.pc),
             static_cast<unsigned long long>(m.pstate));
#endif
    return text.Text();
}

__attribute__((noinline)) char const* TezDebug::GetFirstStackTraceString(unsigned options,
                                                                         TezExceptionPointers* exception)
{
    if (!FillInStackFrame(exception, __builtin_return_address(0)))
        return nullptr;
    return GetNextStackTraceString(options, exception);
}

char const* TezDebug::GetNextStackTraceString(unsigned options, TezExceptionPointers* exception)
{
    if (g_frameNext >= g_frameCount)
        return nullptr;
    TezStackFrame const frame = g_frames[g_frameNext++];
    TezSymbolInfo info;
    TezSymbolEngine::Lookup(frame, info);

    TextBuffer text(g_stackLine, sizeof g_stackLine);
    if (options & StackModule)
        text.Add("%s at ", info.module ? info.module : "<UNKNOWN>");
    text.Add("0x%016" PRIXPTR, frame.pc);
    // Argument registers are known only where the fault stopped the thread.
    bool const isFault = exception && exception->context && frame.exact && frame.pc == FaultPc(exception);
    if ((options & StackParams) && isFault) {
#if defined(__x86_64__)
        greg_t const* r = exception->context->uc_mcontext.gregs;
        text.Add(" (0x%016llX 0x%016llX 0x%016llX 0x%016llX)", static_cast<unsigned long long>(r[REG_RDI]),
                 static_cast<unsigned long long>(r[REG_RSI]), static_cast<unsigned long long>(r[REG_RDX]),
                 static_cast<unsigned long long>(r[REG_RCX]));
#endif
    }
    AddSymbolParts(text, info, options);
    return text.Text();
}

bool TezDebug::FillInStackFrame(TezExceptionPointers* exception, void const* caller)
{
    g_frameCount = 0;
    g_frameNext = 0;
    bool const fromFault = exception && exception->context;
    uintptr_t const pc = fromFault ? FaultPc(exception) : reinterpret_cast<uintptr_t>(caller);
    bool found = false;
    g_frameCount = TezSymbolEngine::WalkStack(pc, g_frames, kMaxFrames, &found);
    if (fromFault && !found) {
        // The unwinder could not pass the signal frame: the fault alone.
        g_frames[0] = {pc, true};
        g_frameCount = 1;
    }
    if (fromFault && g_frameCount == 1 && !GetModuleOfAddress(reinterpret_cast<void const*>(pc))) {
        // A call through a bad pointer: the caller's return address is still
        // on top of the stack.
        uintptr_t returnAddress = 0;
        iovec local{&returnAddress, sizeof returnAddress};
        iovec remote{reinterpret_cast<void*>(FaultSp(exception)), sizeof returnAddress};
        if (process_vm_readv(getpid(), &local, 1, &remote, 1, 0) == sizeof returnAddress && returnAddress)
            g_frames[g_frameCount++] = {returnAddress, false};
    }
    return g_frameCount > 0;
}

void TezDebug::InitSymEng() { TezSymbolEngine::Initialize(); }

void TezDebug::CleanupSymEng() { TezSymbolEngine::Cleanup(); }

char const* TezDebug::GetCrashReport(TezExceptionPointers* exception)
{
    TextBuffer text(g_report, sizeof g_report);
    text.Add("%s\n", GetFaultReason(exception));
    text.Add("%s", GetRegisterString(exception));
    for (char const* line = GetFirstStackTraceString(StackAll, exception); line;
         line = GetNextStackTraceString(StackAll, exception))
        text.Add("%s\n", line);
    return text.Text();
}

namespace {

int AddModule(dl_phdr_info* info, size_t, void* argument)
{
    auto* text = static_cast<TextBuffer*>(argument);
    uintptr_t low = UINTPTR_MAX;
    uintptr_t high = 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        ElfW(Phdr) const& header = info->dlpi_phdr[i];
        if (header.p_type != PT_LOAD)
            continue;
        low = std::min<uintptr_t>(low, info->dlpi_addr + header.p_vaddr);
        high = std::max<uintptr_t>(high, info->dlpi_addr + header.p_vaddr + header.p_memsz);
    }
    if (high > low)
        text->Add("0x%016" PRIXPTR "-0x%016" PRIXPTR " %s\n", low, high,
                  info->dlpi_name && *info->dlpi_name ? info->dlpi_name : "<program>");
    return 0;
}

} // namespace

bool TezDebug::WriteDumpFile(char const* path, TezExceptionPointers* exception)
{
    if (!path || !exception)
        return false;
    int const fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;

    static char header[8192];
    TextBuffer text(header, sizeof header);
    char exe[1024];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    exe[n > 0 ? n : 0] = '\0';
    text.Add("Tezcore crash dump\nprogram: %s\nprocess: %d, thread %ld\n", exe, static_cast<int>(getpid()),
             static_cast<long>(syscall(SYS_gettid)));
    char arguments[2048];
    int cmdline = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    ssize_t length = cmdline >= 0 ? read(cmdline, arguments, sizeof arguments - 1) : 0;
    if (cmdline >= 0)
        close(cmdline);
    for (ssize_t i = 0; i + 1 < length; ++i)
        if (arguments[i] == '\0')
            arguments[i] = ' ';
    arguments[length > 0 ? length : 0] = '\0';
    text.Add("command line: %s\n", arguments);
    time_t const now = time(nullptr);
    struct tm utc
    {
    };
    gmtime_r(&now, &utc);
    char when[64];
    strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S UTC", &utc);
    text.Add("time: %s\n", when);
    siginfo_t const* info = exception->info;
    text.Add("signal: %d (%s), code %d, address 0x%016" PRIXPTR "\n\n", exception->signal,
             SignalDescription(exception->signal), info ? info->si_code : 0,
             info ? reinterpret_cast<uintptr_t>(info->si_addr) : uintptr_t(0));
    WriteAll(fd, text.Text(), text.Size());

    WriteAll(fd, GetCrashReport(exception));

    // The loaded modules, so that addresses can be resolved later against
    // the same files.
    TextBuffer modules(g_report, sizeof g_report);
    modules.Add("\nmodules:\n");
    dl_iterate_phdr(AddModule, &modules);
    WriteAll(fd, modules.Text(), modules.Size());

    // The top of the faulting stack; process_vm_readv stops at the first
    // page that cannot be read instead of faulting.
    if (uintptr_t const sp = FaultSp(exception)) {
        unsigned char bytes[kDumpStackBytes];
        iovec local{bytes, sizeof bytes};
        iovec remote{reinterpret_cast<void*>(sp), sizeof bytes};
        ssize_t got = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
        TextBuffer stack(g_report, sizeof g_report);
        stack.Add("\nstack:\n");
        for (ssize_t offset = 0; offset + 8 <= got; offset += 16) {
            uint64_t words[2] = {0, 0};
            std::memcpy(words, bytes + offset, offset + 16 <= got ? 16 : 8);
            stack.Add("0x%016" PRIXPTR ": %016" PRIX64 " %016" PRIX64 "\n", sp + offset, words[0], words[1]);
        }
        WriteAll(fd, stack.Text(), stack.Size());
    }
    close(fd);
    return true;
}
