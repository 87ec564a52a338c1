#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace quillo::server {

/// Another server uses the data folder; the text names it and the next step.
class DataFolderInUse : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reserves a data folder for one server during its lifetime: locks `server.lock` in it (flock(2)), which contains the
/// server's process id and address for users and programs. A killed server leaves the file, but not the lock.
class DataFolderLock {
public:
    /// `folder` must exist. Throws DataFolderInUse, and std::runtime_error when the file cannot be created.
    explicit DataFolderLock(const std::filesystem::path& folder, const std::string& address);
    ~DataFolderLock();
    DataFolderLock(const DataFolderLock&) = delete;
    DataFolderLock& operator=(const DataFolderLock&) = delete;

private:
    int m_descriptor = -1;
};

} // namespace quillo::server
