// Every crash happens in a forked child whose standard error comes back
// through a pipe; the parent checks the report and how the child ended.
// This file is compiled with -O0 -g, so that the faulting functions keep their
// frames and lines.
#define TEZ_ENABLE_ASSERT 1

#include "libsrc/Debug/Debug.h"
#include "libsrc/Debug/DiagAssert.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <functional>
#include <regex>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct ChildRun
{
    int status = 0;
    std::string err;

    bool DiedOf(int signal) const { return WIFSIGNALED(status) && WTERMSIG(status) == signal; }
    int ExitCode() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
};

ChildRun RunChild(std::function<void()> const& body)
{
    int fds[2];
    EXPECT_EQ(0, pipe(fds));
    std::fflush(stdout);
    std::fflush(stderr);
    pid_t const pid = fork();
    if (pid == 0) {
        close(fds[0]);
        dup2(fds[1], STDERR_FILENO);
        int const null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        body();
        _exit(0);
    }
    close(fds[1]);
    ChildRun run;
    char buffer[4096];
    for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) != 0;) {
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            break;
        run.err.append(buffer, static_cast<size_t>(n));
    }
    close(fds[0]);
    waitpid(pid, &run.status, 0);
    return run;
}

void Say(char const* text) { (void)!write(STDERR_FILENO, text, std::strlen(text)); }

// Prints what a host's filter would, then leaves the fault to the former handler.
long PrintingFilter(TezExceptionPointers* exception)
{
    Say("filter\n");
    Say(TezDebug::GetFaultReason(exception));
    Say("\n");
    Say(TezDebug::GetRegisterString(exception));
    for (char const* line = TezDebug::GetFirstStackTraceString(TezDebug::StackAll, exception); line;
         line = TezDebug::GetNextStackTraceString(TezDebug::StackAll, exception)) {
        Say(line);
        Say("\n");
    }
    return TezDebug::ContinueSearch;
}

long ExecutingFilter(TezExceptionPointers*) { return TezDebug::ExecuteHandler; }

void FormerHandler(int)
{
    Say("former handler\n");
    _exit(42);
}

__attribute__((noinline)) int ReadThroughPointer(int const volatile* p) { return *p; }

__attribute__((noinline)) void WriteThroughPointer(int volatile* p) { *p = 1; }

__attribute__((noinline)) int DivideIntegers(int volatile a, int volatile b) { return a / b; }

__attribute__((noinline)) void ExecuteTrap() { __builtin_trap(); }

// Reading a shared mapping past the end of its file.
__attribute__((noinline)) int ReadPastFileEnd()
{
    char name[] = "/tmp/tez_debug_XXXXXX";
    int fd = mkstemp(name);
    unlink(name);
    auto const* bytes = static_cast<char const volatile*>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0));
    return bytes[0];
}

__attribute__((noinline)) int Recurse(int depth)
{
    char volatile pad[512];
    pad[0] = static_cast<char>(depth);
    if (depth < 0)
        return 0;
    return Recurse(depth + 1) + pad[0];
}

__attribute__((noinline)) void AssertOnePlusOne()
{
    errno = ENOENT;
    TEZ_ASSERT(1 + 1 == 3);
}

std::string Line(std::string const& text, int index)
{
    size_t begin = 0;
    for (int i = 0; i < index && begin != std::string::npos; ++i) {
        begin = text.find('\n', begin);
        if (begin != std::string::npos)
            ++begin;
    }
    if (begin == std::string::npos)
        return "";
    return text.substr(begin, text.find('\n', begin) - begin);
}

char const* const kRegisterLines = "RAX=[0-9A-F]{16}  RBX=[0-9A-F]{16}  RCX=[0-9A-F]{16}  RDX=[0-9A-F]{16}  "
                                   "RSI=[0-9A-F]{16}\nRDI=[0-9A-F]{16}  RBP=[0-9A-F]{16}  RSP=[0-9A-F]{16}  "
                                   "RIP=([0-9A-F]{16})  FLG=[0-9A-F]{16}\n";

std::string const kLocal = "\\(anonymous namespace\\)::";

// The report of PrintingFilter for a fault in `function` of this program.
void ExpectReport(ChildRun const& run, int signal, std::string const& what, std::string const& function)
{
    SCOPED_TRACE(run.err);
    EXPECT_TRUE(run.DiedOf(signal)) << "status " << run.status;
    ASSERT_EQ("filter", Line(run.err, 0));
    std::smatch reason;
    std::string const first = Line(run.err, 1);
    ASSERT_TRUE(
        std::regex_match(first, reason,
                         std::regex("tez_debug_tests caused an " + what +
                                    " in module tez_debug_tests at 0x([0-9A-F]{16}) " + kLocal + function +
                                    "\\(\\)\\+[0-9]{4} byte\\(s\\) /.*/tests/libsrc/Debug/DebugTest\\.cpp, line "
                                    "[0-9]{4}(\\+[0-9]{4} byte\\(s\\))?")));
    std::smatch registers;
    std::string const rest = run.err.substr(run.err.find("RAX="));
    ASSERT_TRUE(std::regex_search(rest, registers, std::regex(std::string("^") + kRegisterLines)));
    EXPECT_EQ(reason[1], registers[1]) << "the reason's address is the instruction pointer";
    // The walk starts at the fault, with its argument registers, and goes on
    // through the test that called it.
    std::string const stack = rest.substr(registers[0].length());
    EXPECT_TRUE(
        std::regex_search(stack, std::regex("^tez_debug_tests at 0x" + std::string(reason[1]) +
                                            " \\(0x[0-9A-F]{16} 0x[0-9A-F]{16} 0x[0-9A-F]{16} "
                                            "0x[0-9A-F]{16}\\) " +
                                            kLocal + function + "\\(\\)\\+[0-9]{4} byte\\(s\\) .*DebugTest\\.cpp")));
    EXPECT_NE(std::string::npos, stack.find("TestBody()+")) << "a caller of the faulting function";
    EXPECT_EQ(std::string::npos, run.err.find("fault while reporting"));
}

} // namespace

TEST(TezDebug, AccessViolationsNameTheAccessTheFunctionAndTheLine)
{
    ChildRun read = RunChild([] {
        TezDebug::SetCrashHandlerFilter(PrintingFilter);
        ReadThroughPointer(reinterpret_cast<int const*>(0x10));
    });
    ExpectReport(read, SIGSEGV, "Access Violation reading address 0x0000000000000010", "ReadThroughPointer");

    ChildRun write = RunChild([] {
        TezDebug::SetCrashHandlerFilter(PrintingFilter);
        WriteThroughPointer(reinterpret_cast<int*>(0x20));
    });
    ExpectReport(write, SIGSEGV, "Access Violation writing address 0x0000000000000020", "WriteThroughPointer");
}

TEST(TezDebug, ArithmeticTrapsAndBusErrorsHaveTheirNames)
{
    ExpectReport(RunChild([] {
                     TezDebug::SetCrashHandlerFilter(PrintingFilter);
                     DivideIntegers(1, 0);
                 }),
                 SIGFPE, "Integer Divide by Zero", "DivideIntegers");
    ExpectReport(RunChild([] {
                     TezDebug::SetCrashHandlerFilter(PrintingFilter);
                     ExecuteTrap();
                 }),
                 SIGILL, "Illegal Instruction", "ExecuteTrap");
    ExpectReport(RunChild([] {
                     TezDebug::SetCrashHandlerFilter(PrintingFilter);
                     ReadPastFileEnd();
                 }),
                 SIGBUS, "In Page Error", "ReadPastFileEnd");
}

TEST(TezDebug, SentSignalsAndAbortAreDescribedBySystemText)
{
    // abort() stops inside the C library; the stack still leads back here.
    ChildRun aborted = RunChild([] {
        TezDebug::SetCrashHandlerFilter(PrintingFilter);
        std::abort();
    });
    EXPECT_TRUE(aborted.DiedOf(SIGABRT)) << aborted.err;
    EXPECT_TRUE(std::regex_match(Line(aborted.err, 1),
                                 std::regex("tez_debug_tests caused an Aborted in module libc\\.so\\.6 at 0x.*")))
        << aborted.err;
    EXPECT_NE(std::string::npos, aborted.err.find("TestBody()+")) << aborted.err;

    // A SIGSEGV sent by kill is no access violation, and is sent again to
    // the former (default) handler.
    ChildRun sent = RunChild([] {
        TezDebug::SetCrashHandlerFilter(PrintingFilter);
        kill(getpid(), SIGSEGV);
    });
    EXPECT_TRUE(sent.DiedOf(SIGSEGV)) << sent.err;
    EXPECT_NE(std::string::npos, sent.err.find("tez_debug_tests caused an Segmentation fault in module ")) << sent.err;
}

TEST(TezDebug, StackOverflowIsReportedWithoutTheFilterOrASecondFault)
{
    ChildRun run = RunChild([] {
        TezDebug::SetCrashHandlerFilter(PrintingFilter);
        Recurse(0);
    });
    EXPECT_TRUE(run.DiedOf(SIGSEGV)) << run.status;
    std::string const bangs(33, '!');
    EXPECT_EQ(bangs + "\nEXCEPTION_STACK_OVERFLOW occurred\n" + bangs + "\n", run.err);
}

TEST(TezDebug, TheFormerHandlerKeepsWhatTheFilterLeaves)
{
    // A limit list without the faulting module: the filter is not asked.
    ChildRun elsewhere = RunChild([] {
        signal(SIGSEGV, FormerHandler);
        TezDebug::SetCrashHandlerFilter(PrintingFilter);
        TezDebug::AddCrashHandlerLimitModule(TezDebug::GetModuleOfAddress(dlsym(RTLD_DEFAULT, "write")));
        WriteThroughPointer(nullptr);
    });
    EXPECT_EQ(42, elsewhere.ExitCode());
    EXPECT_EQ("former handler\n", elsewhere.err);

    // With this program listed it is, and then hands on to the former handler.
    ChildRun here = RunChild([] {
        signal(SIGSEGV, FormerHandler);
        TezDebug::SetCrashHandlerFilter(PrintingFilter);
        TezDebug::AddCrashHandlerLimitModule(TezDebug::GetModuleOfAddress(reinterpret_cast<void*>(&Recurse)));
        void const* modules[1] = {};
        if (TezDebug::GetLimitModuleCount() != 1 || !TezDebug::GetLimitModulesArray(modules, 1) ||
            TezDebug::GetLimitModulesArray(modules, 0) || !modules[0])
            _exit(3);
        WriteThroughPointer(nullptr);
    });
    EXPECT_EQ(42, here.ExitCode());
    EXPECT_EQ("filter\n", here.err.substr(0, 7));
    EXPECT_NE(std::string::npos, here.err.find("former handler\n"));

    // Clearing the filter puts the former handler back.
    ChildRun cleared = RunChild([] {
        signal(SIGSEGV, FormerHandler);
        TezDebug::SetCrashHandlerFilter(PrintingFilter);
        TezDebug::SetCrashHandlerFilter(nullptr);
        WriteThroughPointer(nullptr);
    });
    EXPECT_EQ(42, cleared.ExitCode());
    EXPECT_EQ("former handler\n", cleared.err);

    // ExecuteHandler ends the process by the signal, past the former handler.
    ChildRun executed = RunChild([] {
        signal(SIGSEGV, FormerHandler);
        TezDebug::SetCrashHandlerFilter(ExecutingFilter);
        WriteThroughPointer(nullptr);
    });
    EXPECT_TRUE(executed.DiedOf(SIGSEGV)) << executed.status << executed.err;
}

namespace {
void* g_page = nullptr;
long RepairingFilter(TezExceptionPointers*)
{
    mprotect(g_page, 4096, PROT_READ | PROT_WRITE);
    return TezDebug::ContinueExecution;
}
} // namespace

TEST(TezDebug, ContinueExecutionRunsTheRepairedInstructionAgain)
{
    ChildRun run = RunChild([] {
        g_page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        TezDebug::SetCrashHandlerFilter(RepairingFilter);
        WriteThroughPointer(static_cast<int*>(g_page));
        _exit(*static_cast<int*>(g_page) == 1 ? 7 : 8);
    });
    EXPECT_EQ(7, run.ExitCode()) << run.err;
}

TEST(TezDebug, DumpFileHoldsTheReportAndTheModules)
{
    static std::string path = testing::TempDir() + "tez_debug_dump_" + std::to_string(getpid()) + ".txt";
    ChildRun run = RunChild([] {
        TezDebug::SetCrashHandlerFilter([](TezExceptionPointers* e) -> long {
            return TezDebug::WriteDumpFile(path.c_str(), e) ? TezDebug::ContinueSearch : TezDebug::ExecuteHandler;
        });
        ReadThroughPointer(nullptr);
    });
    EXPECT_TRUE(run.DiedOf(SIGSEGV));
    FILE* file = std::fopen(path.c_str(), "r");
    ASSERT_NE(nullptr, file);
    std::string dump;
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;)
        dump.append(buffer, n);
    std::fclose(file);
    std::remove(path.c_str());
    EXPECT_NE(std::string::npos, dump.find("signal: 11 (Segmentation fault), code 1, address 0x0000000000000000"));
    EXPECT_NE(std::string::npos, dump.find("caused an Access Violation reading address 0x0000000000000000"));
    EXPECT_TRUE(std::regex_search(dump, std::regex(kRegisterLines)));
    EXPECT_TRUE(std::regex_search(dump, std::regex("\nmodules:\n(0x[0-9A-F]{16}-0x[0-9A-F]{16} .*\n)+")));
    EXPECT_TRUE(std::regex_search(dump, std::regex("libTezcore\\.so")));
    EXPECT_TRUE(std::regex_search(dump, std::regex("\nstack:\n0x[0-9A-F]{16}: [0-9A-F]{16} [0-9A-F]{16}\n")));
}

TEST(TezDiagAssert, ReportsTheExpressionProgramLastErrorAndStack)
{
    ChildRun run = RunChild([] {
        AssertOnePlusOne();
        _exit(errno == ENOENT ? 5 : 6);
    });
    EXPECT_EQ(5, run.ExitCode()) << "goes on, with errno kept";
    EXPECT_TRUE(std::regex_search(run.err, std::regex("^ASSERTION FAILURE\\.\\.\\.\nDebug Assertion Failed!\n\n"
                                                      "Program : /.*/tez_debug_tests\n"
                                                      "File : .*DebugTest\\.cpp\nLine : [0-9]+\n"
                                                      "Expression : 1 \\+ 1 == 3\n"
                                                      "Last Error \\(0x00000002\\) : No such file or directory\n")))
        << run.err;
    EXPECT_TRUE(std::regex_search(run.err, std::regex("\ntez_debug_tests: \\(anonymous namespace\\)::AssertOnePlusOne "
                                                      "\\+ [0-9]+ bytes\t\t.*DebugTest\\.cpp\t\tLine [0-9]+\n")))
        << run.err;

    ChildRun aborted = RunChild([] {
        TezSetDiagAssertOptions(TezAssertShowStderr | TezAssertAbort);
        AssertOnePlusOne();
    });
    EXPECT_TRUE(aborted.DiedOf(SIGABRT));
    EXPECT_EQ(std::string::npos, aborted.err.find(" bytes")) << "no stack without the option";
}
