#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quillo::server {

/// Makes `folder` and what is missing above it, readable by the owner alone (0700). Throws std::runtime_error naming
/// the folder and the cause.
void makePrivateFolder(const std::filesystem::path& folder);

/// The whole content; empty when there is no such file. Throws std::runtime_error when it exists and cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& file);

/// Replaces the file in one step: a reader sees the old content or the new one, also after a power cut.
/// Throws std::runtime_error naming the file and the cause, and leaves the old content in place then.
void writeFileAtomically(const std::filesystem::path& file, std::string_view content, unsigned mode = 0600);

/// Holds an advisory lock between processes as long as it lives; waits for another holder.
class FileLock {
public:
    explicit FileLock(const std::filesystem::path& file);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int m_descriptor = -1;
};

} // namespace quillo::server
