#pragma once
// TezOutputFile: a command's result written under a temporary name beside
// its final one and renamed into place by Commit, so that a command that
// fails or is stopped leaves any earlier file as it was and no half-written
// one. The temporary name keeps the extension (the writers pick the format
// by it) and starts with a dot: ".NAME.tez-PID.EXT". Without Commit the
// destructor removes the temporary file.

#include <string>

class TezOutputFile
{
public:
    explicit TezOutputFile(std::string path);
    ~TezOutputFile();
    TezOutputFile(TezOutputFile const&) = delete;
    TezOutputFile& operator=(TezOutputFile const&) = delete;

    // Where the writer writes.
    std::string const& GetTemporaryPath() const { return m_temporary; }
    std::string const& GetPath() const { return m_path; }
    // Renames the temporary file to the final name; false (errno set) when
    // that fails, and the temporary file is removed.
    bool Commit();

private:
    std::string m_path;
    std::string m_temporary;
    bool m_committed = false;
};
