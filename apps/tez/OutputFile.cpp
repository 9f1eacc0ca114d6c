#include "tez/OutputFile.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

TezOutputFile::TezOutputFile(std::string path) : m_path(std::move(path))
{
    size_t const slash = m_path.find_last_of('/');
    std::string const folder = slash == std::string::npos ? std::string() : m_path.substr(0, slash + 1);
    std::string const name = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
    size_t const dot = name.find_last_of('.');
    std::string const stem = dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
    std::string const extension = dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot);
    m_temporary = folder + "." + stem + ".tez-" + std::to_string(getpid()) + extension;
}

TezOutputFile::~TezOutputFile()
{
    if (!m_committed)
        std::remove(m_temporary.c_str());
}

bool TezOutputFile::Commit()
{
    if (std::rename(m_temporary.c_str(), m_path.c_str()) != 0) {
        int const saved = errno;
        std::remove(m_temporary.c_str());
        errno = saved;
        return false;
    }
    m_committed = true;
    return true;
}
