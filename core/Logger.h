#pragma once
// TezLogger: the process-wide log, static operations only.
//
// Messages go to a rotating file (MVLogFile1.log newest, up to nine files of
// about 1 MiB in the log folder) and to standard output, each sink with its
// own level threshold and line decoration. The settings come from the words
// of the environment variable MVLog, read on the first message: SETINFO,
// SETFTRACE, SHOWLEVEL, SHOWFCAT, SHOWMON, EXCLUSIVE, LOGBUFON and their like;
// other words are categories, and once any category is listed only messages
// of listed categories (and, unless EXCLUSIVE, those with no category) pass.
//
// Levels: 1 trace, 2 debug, 3 info, 4 warn, 5 error, 6 exception, 7 none.
// except() logs at level 6 (file only) and throws std::runtime_error.
// Messages must stay under 8,192 bytes; longer ones are cut.
//
// Folders on Linux: log = <shared>/Logs/ (shared is /var/tmp, or the per-user
// state folder when that cannot be written), temp = <XDG data home>/Morvane/,
// user = <XDG documents>/Morvane/. TEZ_LOG_ROOT, when set, puts all three
// below one folder: ROOT/Logs/, ROOT/AppData/Morvane/, ROOT/Documents/Morvane/.

#include "platform/Api.h"

class TEZ_API TezLogger
{
public:
    enum Level { Trace = 1, Debug, Info, Warn, Error, Exception, None };

#if defined(__GNUC__)
#    define TEZ_PRINTF(f, a) __attribute__((format(printf, f, a)))
#else
#    define TEZ_PRINTF(f, a)
#endif
    static void trace(char const* format, ...) TEZ_PRINTF(1, 2);
    static void debug(char const* format, ...) TEZ_PRINTF(1, 2);
    static void info(char const* format, ...) TEZ_PRINTF(1, 2);
    static void warn(char const* format, ...) TEZ_PRINTF(1, 2);
    static void error(char const* format, ...) TEZ_PRINTF(1, 2);
    static void traceCat(char const* category, char const* format, ...) TEZ_PRINTF(2, 3);
    static void debugCat(char const* category, char const* format, ...) TEZ_PRINTF(2, 3);
    static void infoCat(char const* category, char const* format, ...) TEZ_PRINTF(2, 3);
    static void warnCat(char const* category, char const* format, ...) TEZ_PRINTF(2, 3);
    static void errorCat(char const* category, char const* format, ...) TEZ_PRINTF(2, 3);
    [[noreturn]] static void except(char const* format, ...) TEZ_PRINTF(1, 2);
#undef TEZ_PRINTF

    // The common sink. Takes no lock; text is not a format.
    static void log(int level, char const* category, char const* text);
    static bool isLog(char const* category);

    static int GetConsoleLevel();
    static void SetConsoleLevel(int level);
    static int GetFileLevel();
    static void SetFileLevel(int level);
    static bool GetExclusive();
    static void SetExclusive(bool exclusive);
    static bool GetLogBuffering();
    // Setting buffering either way also flushes what waits.
    static void SetLogBuffering(bool buffering);
    static void FlushLog();

    // Both act on the first word of MVLog, not on their argument.
    static void AddCategory(char const* ignored);
    static void RemoveCategory(char const* ignored);
    static void ClearCategories();

    static char const* GetLogFilePath();
    static char const* GetTempFilePath();
    static char const* GetUserFilePath();

    // Read and write for everybody on that one file. Failures are ignored.
    static void SetFilePermission(char const* path);

    // Forgets every setting and reads MVLog and the folders again, as at the
    // first message of a process (writes a new start line).
    static void Reload();
};
