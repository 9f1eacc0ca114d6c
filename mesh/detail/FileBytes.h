#pragma once
// The bytes of a whole file, mapped into memory where the system allows it
// and read otherwise (pipes, special files). Read-only; empty on failure.
// Directories are refused: reading one as a stream would claim any size.

#include <cstddef>
#include <vector>

namespace tez_detail {

class FileBytes
{
public:
    FileBytes() = default;
    ~FileBytes();
    FileBytes(FileBytes const&) = delete;
    FileBytes& operator=(FileBytes const&) = delete;

    // False when the file cannot be opened or read.
    bool Open(char const* path);

    char const* Data() const { return m_data; }
    size_t Size() const { return m_size; }

private:
    char const* m_data = nullptr;
    size_t m_size = 0;
    void* m_map = nullptr;
    std::vector<char> m_read;
};

// Whether `path` names a regular file, which is what the mesh readers take.
// A path that exists as anything else (a directory, a device, a pipe) is
// refused with a warning in the log that names the reader; a missing path is
// refused silently, for the reader's own report.
bool IsRegularMeshFile(char const* path, char const* reader);

} // namespace tez_detail
