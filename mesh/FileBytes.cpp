#include "mesh/detail/FileBytes.h"

#include "core/Logger.h"
#include "mesh/detail/TextScan.h"

#include <cstdio>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tez_detail {

FileBytes::~FileBytes()
{
    if (m_map)
        munmap(m_map, m_size);
}

bool FileBytes::Open(char const* path)
{
    int const fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat info;
    bool const known = fstat(fd, &info) == 0;
    if (known && S_ISDIR(info.st_mode)) {
        close(fd);
        return false;
    }
    if (known && S_ISREG(info.st_mode)) {
        m_size = static_cast<size_t>(info.st_size);
        if (m_size == 0) {
            close(fd);
            m_data = "";
            return true;
        }
        void* map = mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, fd, 0);
        if (map != MAP_FAILED) {
            close(fd);
            madvise(map, m_size, MADV_SEQUENTIAL);
            m_map = map;
            m_data = static_cast<char const*>(map);
            return true;
        }
    }
    close(fd);
    FILE* file = std::fopen(path, "rb");
    if (!file)
        return false;
    bool const read = ReadRest(file, m_read);
    std::fclose(file);
    m_size = m_read.size();
    m_data = m_read.data();
    return read;
}

bool IsRegularMeshFile(char const* path, char const* reader)
{
    struct stat info;
    if (!path || stat(path, &info) != 0)
        return false;
    if (S_ISREG(info.st_mode))
        return true;
    TezLogger::warn("%s: '%s' is %s, not a mesh file\n", reader, path,
                    S_ISDIR(info.st_mode) ? "a directory" : "not a regular file");
    return false;
}

} // namespace tez_detail
