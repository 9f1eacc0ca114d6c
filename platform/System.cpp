#include "platform/System.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// Reads one "Name: value kB" line of /proc/meminfo, in bytes; -1 if absent.
double MemInfoBytes(char const* key)
{
    FILE* file = std::fopen("/proc/meminfo", "r");
    if (!file)
        return -1.0;
    char line[256];
    double bytes = -1.0;
    size_t keyLength = std::strlen(key);
    while (std::fgets(line, sizeof line, file)) {
        if (std::strncmp(line, key, keyLength) == 0 && line[keyLength] == ':') {
            bytes = std::strtod(line + keyLength + 1, nullptr) * 1024.0;
            break;
        }
    }
    std::fclose(file);
    return bytes;
}

} // namespace

std::string TezGetExecutableDir()
{
    char path[PATH_MAX + 1];
    ssize_t n = readlink("/proc/self/exe", path, PATH_MAX);
    if (n <= 0)
        return TezGetCurrentDir();
    path[n] = '\0';
    char* slash = std::strrchr(path, '/');
    if (slash)
        *slash = '\0';
    return std::string(path);
}

std::string TezGetCurrentDir()
{
    std::vector<char> buffer(256);
    while (!getcwd(buffer.data(), buffer.size())) {
        if (errno != ERANGE || buffer.size() > (1u << 20))
            return std::string();
        buffer.resize(buffer.size() * 2);
    }
    return std::string(buffer.data());
}

std::string TezGetEnv(char const* name)
{
    char const* value = name ? std::getenv(name) : nullptr;
    return value ? std::string(value) : std::string();
}

bool TezCreateDir(char const* path)
{
    std::string full = TezTransformPath(path ? path : "");
    for (size_t i = 1; i <= full.size(); ++i) {
        if (i == full.size() || full[i] == '/') {
            std::string part = full.substr(0, i);
            if (!part.empty())
                mkdir(part.c_str(), 0777);
        }
    }
    return false;
}

bool TezIsDirectory(char const* path)
{
    struct stat info;
    return path && stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

double TezGetTotalMemory()
{
    double bytes = MemInfoBytes("MemTotal");
    if (bytes < 0)
        bytes = static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
    return bytes;
}

double TezGetAvailableMemory()
{
    double bytes = MemInfoBytes("MemAvailable");
    if (bytes < 0)
        bytes = static_cast<double>(sysconf(_SC_AVPHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
    return bytes;
}

double TezGetMemoryLoad()
{
    double total = TezGetTotalMemory();
    if (total <= 0)
        return 0.0;
    return std::clamp((total - TezGetAvailableMemory()) / total, 0.0, 1.0);
}

unsigned TezGetNumberOfProcessors()
{
    unsigned n = std::thread::hardware_concurrency();
    return n ? n : 1u;
}

void TezAdvancePos(int64_t& position, uint64_t amount) { position += static_cast<int64_t>(amount); }

std::string TezToUpper(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string TezTransformPath(std::string path)
{
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}
