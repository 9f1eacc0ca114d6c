#include "core/Logger.h"

#include "platform/System.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <stdexcept>
#include <string>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t kMessageSize = 8192;
constexpr size_t kLogBufferSize = 2048;
constexpr long kRotateSize = 1048576;
constexpr int kFileCount = 9;
char const* const kBaseName = "MVLogFile";

char const* const kPrefixes[] = {"", "TRACE: ", "DEBUG: ", " INFO: ", " WARN: ", "ERROR: ", "EXCEPT: ", ""};

struct LoggerState
{
    bool initialized = false;
    int fileLevel = TezLogger::Debug;
    int consoleLevel = TezLogger::Info;
    bool fileShowLevel = true;
    bool fileShowCategory = true;
    int fileDateDetail = 5;
    bool consoleShowLevel = false;
    bool consoleShowCategory = false;
    int consoleDateDetail = 0;
    bool exclusive = false;
    bool buffering = false;
    std::vector<std::string> categories;
    std::string settingsFirstWord;
    std::string logPath, tempPath, userPath;
    char logBuffer[kLogBufferSize];
    size_t waiting = 0;
};

LoggerState g_state;
std::mutex g_mutex;
char g_message[kMessageSize];

bool IsSeparator(char c) { return c == ' ' || c == ',' || c == '\t'; }

std::vector<std::string> Words(std::string const& text)
{
    std::vector<std::string> words;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && IsSeparator(text[i]))
            ++i;
        size_t begin = i;
        while (i < text.size() && !IsSeparator(text[i]))
            ++i;
        if (i > begin)
            words.push_back(TezToUpper(text.substr(begin, i - begin)));
    }
    return words;
}

void ApplyWord(LoggerState& s, std::string const& word)
{
    struct Setting
    {
        char const* word;
        void (*apply)(LoggerState&);
    };
    static Setting const settings[] = {
        {"SETNONE", [](LoggerState& s) { s.consoleLevel = 7; }},
        {"SETERROR", [](LoggerState& s) { s.consoleLevel = 5; }},
        {"SETWARN", [](LoggerState& s) { s.consoleLevel = 4; }},
        {"SETINFO", [](LoggerState& s) { s.consoleLevel = 3; }},
        {"SETDEBUG", [](LoggerState& s) { s.consoleLevel = 2; }},
        {"SETTRACE", [](LoggerState& s) { s.consoleLevel = 1; }},
        {"SHOWLEVEL", [](LoggerState& s) { s.consoleShowLevel = true; }},
        {"SHOWCAT", [](LoggerState& s) { s.consoleShowCategory = true; }},
        {"SHOWNONE", [](LoggerState& s) { s.consoleDateDetail = 0; }},
        {"SHOWSEC", [](LoggerState& s) { s.consoleDateDetail = 1; }},
        {"SHOWMIN", [](LoggerState& s) { s.consoleDateDetail = 2; }},
        {"SHOWHOUR", [](LoggerState& s) { s.consoleDateDetail = 3; }},
        {"SHOWDAY", [](LoggerState& s) { s.consoleDateDetail = 4; }},
        {"SHOWMON", [](LoggerState& s) { s.consoleDateDetail = 5; }},
        {"SHOWYEAR", [](LoggerState& s) { s.consoleDateDetail = 6; }},
        {"SETFNONE", [](LoggerState& s) { s.fileLevel = 7; }},
        {"SETFERROR", [](LoggerState& s) { s.fileLevel = 5; }},
        {"SETFWARN", [](LoggerState& s) { s.fileLevel = 4; }},
        {"SETFINFO", [](LoggerState& s) { s.fileLevel = 3; }},
        {"SETFDEBUG", [](LoggerState& s) { s.fileLevel = 2; }},
        {"SETFTRACE", [](LoggerState& s) { s.fileLevel = 1; }},
        {"SHOWFLEVEL", [](LoggerState& s) { s.fileShowLevel = true; }},
        {"SHOWFCAT", [](LoggerState& s) { s.fileShowCategory = true; }},
        {"SHOWFNONE", [](LoggerState& s) { s.fileDateDetail = 0; }},
        {"SHOWFSEC", [](LoggerState& s) { s.fileDateDetail = 1; }},
        {"SHOWFMIN", [](LoggerState& s) { s.fileDateDetail = 2; }},
        {"SHOWFHOUR", [](LoggerState& s) { s.fileDateDetail = 3; }},
        {"SHOWFDAY", [](LoggerState& s) { s.fileDateDetail = 4; }},
        {"SHOWFMON", [](LoggerState& s) { s.fileDateDetail = 5; }},
        {"SHOWFYEAR", [](LoggerState& s) { s.fileDateDetail = 6; }},
        {"EXCLUSIVE", [](LoggerState& s) { s.exclusive = true; }},
        {"LOGBUFOFF", [](LoggerState& s) { s.buffering = false; }},
        {"LOGBUFON", [](LoggerState& s) { s.buffering = true; }},
    };
    for (Setting const& setting : settings) {
        if (word == setting.word) {
            setting.apply(s);
            return;
        }
    }
    s.categories.push_back(word);
}

bool IsWritableDir(std::string const& path) { return TezIsDirectory(path.c_str()) && access(path.c_str(), W_OK) == 0; }

std::string HomeDir()
{
    std::string home = TezGetEnv("HOME");
    return home.empty() ? std::string("/tmp") : home;
}

std::string XdgDir(char const* variable, char const* fallbackBelowHome)
{
    std::string dir = TezGetEnv(variable);
    return dir.empty() ? HomeDir() + fallbackBelowHome : dir;
}

void SetUpPaths(LoggerState& s)
{
    std::string root = TezGetEnv("TEZ_LOG_ROOT");
    std::string shared, appData, documents;
    if (!root.empty()) {
        shared = root;
        appData = root + "/AppData";
        documents = root + "/Documents";
        TezCreateDir(appData.c_str());
        TezCreateDir(documents.c_str());
    } else {
        // Linux has no shared documents folder; /var/tmp is the persistent
        // one every user can write. Fall back to the per-user state folder.
        shared = IsWritableDir("/var/tmp") ? std::string("/var/tmp") : XdgDir("XDG_STATE_HOME", "/.local/state");
        appData = XdgDir("XDG_DATA_HOME", "/.local/share");
        documents = XdgDir("XDG_DOCUMENTS_DIR", "/Documents");
    }
    s.logPath = shared + "/Logs/";
    mkdir(s.logPath.c_str(), 0777);
    s.tempPath = appData + "/Morvane/";
    mkdir(s.tempPath.c_str(), 0777);
    s.userPath = documents + "/Morvane/";
    mkdir(s.userPath.c_str(), 0777);
    TezCreateDir(s.tempPath.c_str());
    TezCreateDir(s.logPath.c_str());
    if (!IsWritableDir(s.logPath) && root.empty()) {
        s.logPath = XdgDir("XDG_STATE_HOME", "/.local/state") + "/Logs/";
        TezCreateDir(s.logPath.c_str());
    }
}

std::string DateText(int detail)
{
    if (detail <= 0)
        return std::string();
    auto now = std::chrono::system_clock::now();
    std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    int ms =
        static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000);
    std::tm t{};
    localtime_r(&seconds, &t);
    char text[64];
    switch (detail) {
    case 1:
        std::snprintf(text, sizeof text, "%02d.%03d ", t.tm_sec, ms);
        break;
    case 2:
        std::snprintf(text, sizeof text, "%02d:%02d.%03d ", t.tm_min, t.tm_sec, ms);
        break;
    case 3:
        std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d ", t.tm_hour, t.tm_min, t.tm_sec, ms);
        break;
    case 4:
        std::snprintf(text, sizeof text, "%02d %02d:%02d:%02d.%03d ", t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, ms);
        break;
    case 5:
        std::snprintf(text, sizeof text, "%02d/%02d %02d:%02d:%02d.%03d ", t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min,
                      t.tm_sec, ms);
        break;
    default:
        std::snprintf(text, sizeof text, "%04d%02d/%02d %02d:%02d:%02d.%03d ", t.tm_year + 1900, t.tm_mon + 1,
                      t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, ms);
        break;
    }
    return text;
}

std::string FileName(int number) { return g_state.logPath + kBaseName + std::to_string(number) + ".log"; }

// Opens and closes the file for every write, so a crash loses nothing written.
void WriteToFile(char const* bytes, size_t n)
{
    std::string current = FileName(1);
    struct stat info;
    if (stat(current.c_str(), &info) == 0 && info.st_size > kRotateSize) {
        for (int i = kFileCount; i >= 1; --i) {
            std::string name = FileName(i);
            if (access(name.c_str(), F_OK) != 0)
                continue;
            if (i < kFileCount)
                std::rename(name.c_str(), FileName(i + 1).c_str());
            else
                std::remove(name.c_str());
        }
    }
    FILE* file = std::fopen(current.c_str(), "a");
    if (!file)
        return;
    std::fwrite(bytes, 1, n, file);
    if (n == 0 || bytes[n - 1] != '\n')
        std::fputc('\n', file);
    std::fclose(file);
}

void FlushLocked()
{
    if (g_state.waiting > 0) {
        WriteToFile(g_state.logBuffer, g_state.waiting);
        g_state.waiting = 0;
    }
}

void AppendToFile(std::string const& text)
{
    if (text.empty())
        return;
    if (!g_state.buffering) {
        WriteToFile(text.data(), text.size());
        return;
    }
    if (g_state.waiting + text.size() >= kLogBufferSize && g_state.waiting > 0)
        FlushLocked();
    if (text.size() >= kLogBufferSize) {
        // Too long to wait in the buffer: it goes out on its own.
        WriteToFile(text.data(), text.size());
        return;
    }
    std::memcpy(g_state.logBuffer + g_state.waiting, text.data(), text.size());
    g_state.waiting += text.size();
    if (text.back() != '\n')
        g_state.logBuffer[g_state.waiting++] = '\n';
}

void Initialize()
{
    g_state.initialized = true;
    std::string settings = TezGetEnv("MVLog");
    if (!settings.empty()) {
        std::vector<std::string> words = Words(settings);
        for (std::string const& word : words)
            ApplyWord(g_state, word);
        size_t end = 0;
        while (end < settings.size() && IsSeparator(settings[end]))
            ++end;
        size_t begin = end;
        while (end < settings.size() && !IsSeparator(settings[end]))
            ++end;
        g_state.settingsFirstWord = settings.substr(begin, end - begin);
    }
    SetUpPaths(g_state);
    AppendToFile("\r\n" + DateText(g_state.fileDateDetail) + ">>>> START!!! >>>>");
}

std::string Line(int level, char const* category, char const* text, int detail, bool showLevel, bool showCategory)
{
    std::string line = DateText(detail);
    if (showLevel && level >= 1 && level <= 7)
        line += kPrefixes[level];
    if (showCategory && category && *category)
        line += std::string("[") + category + "] ";
    line += text ? text : "";
    return line;
}

void FormatAndLog(int level, char const* category, char const* format, va_list args)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    std::vsnprintf(g_message, kMessageSize, format, args);
    TezLogger::log(level, category, g_message);
}

} // namespace

void TezLogger::log(int level, char const* category, char const* text)
{
    if (!g_state.initialized)
        Initialize();
    if (level >= g_state.fileLevel && isLog(category))
        AppendToFile(
            Line(level, category, text, g_state.fileDateDetail, g_state.fileShowLevel, g_state.fileShowCategory));
    if (level >= g_state.consoleLevel && level != Exception && isLog(category)) {
        std::string line = Line(level, category, text, g_state.consoleDateDetail, g_state.consoleShowLevel,
                                g_state.consoleShowCategory);
        std::fputs(line.c_str(), stdout);
    }
}

bool TezLogger::isLog(char const* category)
{
    if (g_state.categories.empty())
        return true;
    if (category && *category) {
        for (std::string const& entry : g_state.categories)
            if (strcasecmp(entry.c_str(), category) == 0)
                return true;
        return false;
    }
    return !g_state.exclusive;
}

#define TEZ_LOG_FORWARD(name, level)                                                                                   \
    void TezLogger::name(char const* format, ...)                                                                      \
    {                                                                                                                  \
        va_list args;                                                                                                  \
        va_start(args, format);                                                                                        \
        FormatAndLog(level, nullptr, format, args);                                                                    \
        va_end(args);                                                                                                  \
    }                                                                                                                  \
    void TezLogger::name##Cat(char const* category, char const* format, ...)                                           \
    {                                                                                                                  \
        va_list args;                                                                                                  \
        va_start(args, format);                                                                                        \
        FormatAndLog(level, category, format, args);                                                                   \
        va_end(args);                                                                                                  \
    }

TEZ_LOG_FORWARD(trace, Trace)
TEZ_LOG_FORWARD(debug, Debug)
TEZ_LOG_FORWARD(info, Info)
TEZ_LOG_FORWARD(warn, Warn)
TEZ_LOG_FORWARD(error, Error)
#undef TEZ_LOG_FORWARD

void TezLogger::except(char const* format, ...)
{
    std::string text;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        va_list args;
        va_start(args, format);
        std::vsnprintf(g_message, kMessageSize, format, args);
        va_end(args);
        log(Exception, nullptr, g_message);
        text = g_message;
    }
    throw std::runtime_error(text);
}

int TezLogger::GetConsoleLevel() { return g_state.consoleLevel; }
void TezLogger::SetConsoleLevel(int level) { g_state.consoleLevel = level; }
int TezLogger::GetFileLevel() { return g_state.fileLevel; }
void TezLogger::SetFileLevel(int level) { g_state.fileLevel = level; }
bool TezLogger::GetExclusive() { return g_state.exclusive; }
void TezLogger::SetExclusive(bool exclusive) { g_state.exclusive = exclusive; }
bool TezLogger::GetLogBuffering() { return g_state.buffering; }

void TezLogger::SetLogBuffering(bool buffering)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    FlushLocked();
    g_state.buffering = buffering;
}

void TezLogger::FlushLog()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    FlushLocked();
}

void TezLogger::AddCategory(char const*)
{
    for (std::string const& word : Words(g_state.settingsFirstWord))
        g_state.categories.push_back(word);
}

void TezLogger::RemoveCategory(char const*)
{
    for (std::string const& word : Words(g_state.settingsFirstWord)) {
        auto& list = g_state.categories;
        list.erase(std::remove(list.begin(), list.end(), word), list.end());
    }
}

void TezLogger::ClearCategories() { g_state.categories.clear(); }

static void EnsureInitialized()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_state.initialized)
        Initialize();
}

char const* TezLogger::GetLogFilePath()
{
    EnsureInitialized();
    return g_state.logPath.c_str();
}

char const* TezLogger::GetTempFilePath()
{
    EnsureInitialized();
    return g_state.tempPath.c_str();
}

char const* TezLogger::GetUserFilePath()
{
    EnsureInitialized();
    return g_state.userPath.c_str();
}

void TezLogger::SetFilePermission(char const* path)
{
    if (path)
        chmod(path, 0666);
}

void TezLogger::Reload()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    FlushLocked();
    g_state = LoggerState();
    Initialize();
}
