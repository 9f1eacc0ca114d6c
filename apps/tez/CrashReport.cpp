#include "tez/CrashReport.h"

#include "core/Logger.h"
#include "libsrc/Debug/Debug.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace {

// Taken at start: at crash time the logger's lock may be held by the thread
// that crashed.
char g_logFolder[1024];

void WriteError(char const* text)
{
    size_t n = std::strlen(text);
    while (n > 0) {
        ssize_t written = write(STDERR_FILENO, text, n);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        text += written;
        n -= static_cast<size_t>(written);
    }
}

long ReportCrash(TezExceptionPointers* exception)
{
    std::fflush(stdout);
    char const* report = TezDebug::GetCrashReport(exception);
    WriteError(report);
    // Straight to the sinks, past the lock; the terminal has the report already.
    TezLogger::SetConsoleLevel(TezLogger::None);
    TezLogger::log(TezLogger::Error, "Crash", report);

    time_t const now = time(nullptr);
    struct tm local
    {
    };
    localtime_r(&now, &local);
    char stamp[32];
    strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
    char path[1200];
    std::snprintf(path, sizeof path, "%stez-crash-%s-%d.txt", g_logFolder, stamp, static_cast<int>(getpid()));
    if (TezDebug::WriteDumpFile(path, exception)) {
        WriteError("tez: crash dump written to ");
        WriteError(path);
        WriteError("\n");
    }
    return TezDebug::ContinueSearch;
}

} // namespace

void TezInstallCrashReport()
{
    std::snprintf(g_logFolder, sizeof g_logFolder, "%s", TezLogger::GetLogFilePath());
    TezDebug::SetCrashHandlerFilter(ReportCrash);
}
