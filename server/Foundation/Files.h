#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quillo::server {

/// Creates `folder` and its missing parents, readable only by the owner (0700). Throws std::runtime_error naming the
/// folder and the cause.
void makePrivateFolder(const std::filesystem::path& folder);

/// The whole content; empty when there is no such file. Throws std::runtime_error when it exists and cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& file);

/// Replaces the file atomically: a reader sees the old content or the new one, also after a power cut. On failure keeps
/// the old content and throws std::runtime_error naming the file and the cause.
void writeFileAtomically(const std::filesystem::path& file, std::string_view content, unsigned mode = 0600);

/// Holds an advisory lock between processes during its lifetime; waits for another holder.
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
