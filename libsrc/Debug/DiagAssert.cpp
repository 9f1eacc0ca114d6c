#include "libsrc/Debug/DiagAssert.h"

#include "core/Logger.h"
#include "libsrc/Debug/SymbolEngine.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

std::atomic<unsigned> g_options{TezAssertDefaults};

std::string ProgramPath()
{
    char path[1024];
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0)
        return "<unknown application>";
    return std::string(path, static_cast<size_t>(n));
}

std::string Format(char const* format, ...) __attribute__((format(printf, 1, 2)));

std::string Format(char const* format, ...)
{
    char text[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

std::string StackText(uintptr_t caller)
{
    TezStackFrame frames[64];
    bool found = false;
    int count = TezSymbolEngine::WalkStack(caller, frames, 64, &found);
    std::string text;
    for (int i = 0; i < count; ++i) {
        TezSymbolInfo info;
        TezSymbolEngine::Lookup(frames[i], info);
        std::string line = info.module ? Format("%s: ", info.module) : "<unknown module>: ";
        line += info.symbol ? Format("%s + %d bytes", info.symbol, static_cast<int>(info.symbolOffset))
                            : "<unknown symbol>";
        if (info.file)
            line = Format("%s\t\t%s\t\tLine %d", line.c_str(), info.file, info.line);
        text += line + "\n";
    }
    TezSymbolEngine::Cleanup();
    return text;
}

} // namespace

unsigned TezSetDiagAssertOptions(unsigned options) { return g_options.exchange(options); }

unsigned TezGetDiagAssertOptions() { return g_options; }

__attribute__((noinline)) void TezDiagAssert(char const* expression, char const* file, int line)
{
    int const lastError = errno;
    auto const caller = reinterpret_cast<uintptr_t>(__builtin_return_address(0));
    unsigned const options = g_options;

    std::string const where =
        Format("File : %s\nLine : %d\nExpression : %s", file ? file : "", line, expression ? expression : "");
    std::string message =
        Format("Debug Assertion Failed!\n\nProgram : %s\n%s\nLast Error (0x%08X) : %s\n", ProgramPath().c_str(),
               where.c_str(), static_cast<unsigned>(lastError), std::strerror(lastError));
    if (options & TezAssertShowStack)
        message += "\n" + StackText(caller);

    if (options & TezAssertShowStderr) {
        std::string const box = "ASSERTION FAILURE...\n" + message;
        std::fflush(stdout);
        std::fputs(box.c_str(), stderr);
        std::fflush(stderr);
    }
    if (options & TezAssertShowLog)
        TezLogger::error("ASSERTION FAILURE...\n%s", message.c_str());
    if (options & TezAssertAbort)
        std::abort();
    errno = lastError;
}
