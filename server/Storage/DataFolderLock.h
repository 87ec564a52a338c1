#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace quillo::server {

/// Another server works in the data folder; the text names it and the next step.
class DataFolderInUse : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Keeps a data folder to one server for as long as it lives: `server.lock` in it is locked (flock(2)), and holds the
/// process id and the address of the server for people and programs that look for it. A server that was killed leaves
/// the file, but not the lock.
class DataFolderLock {
public:
    /// `folder` exists. Throws DataFolderInUse, and std::runtime_error when the file cannot be made.
    explicit DataFolderLock(const std::filesystem::path& folder, const std::string& address);
    ~DataFolderLock();
    DataFolderLock(const DataFolderLock&) = delete;
    DataFolderLock& operator=(const DataFolderLock&) = delete;

private:
    int m_descriptor = -1;
};

} // namespace quillo::server
