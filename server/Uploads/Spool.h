#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

namespace quillo::server {

class Spool;

/// A file being uploaded. Removed when destroyed, unless it was kept.
class SpoolFile {
public:
    ~SpoolFile();
    SpoolFile(const SpoolFile&) = delete;
    SpoolFile& operator=(const SpoolFile&) = delete;

    /// Appends. Throws UploadError (507) when the disk or the spool is full.
    void write(std::string_view bytes);
    /// Call after the last byte: synchronises the file, so that it survives a power cut. Throws UploadError.
    void close();
    /// Keeps the file until `Spool::remove`.
    void keep() { m_kept = true; }

    [[nodiscard]] const std::string& name() const { return m_name; }
    [[nodiscard]] int64_t size() const { return m_size; }

private:
    friend class Spool;
    SpoolFile(std::shared_ptr<Spool> spool, std::string name, int descriptor);

    std::shared_ptr<Spool> m_spool;
    std::string m_name;
    int m_descriptor;
    int64_t m_size = 0;
    bool m_kept = false;
};

/// The folder, readable only by its owner, in which uploaded audio waits for recognition. Limits the bytes in it.
/// Thread-safe.
class Spool : public std::enable_shared_from_this<Spool> {
public:
    /// Creates the folder if it is missing. Throws std::runtime_error.
    Spool(std::filesystem::path folder, int64_t maxBytes);

    /// Throws UploadError when the file cannot be created.
    std::unique_ptr<SpoolFile> create();
    /// Removes a kept file; a missing file is not an error.
    void remove(const std::string& name);
    /// Removes every file whose name is not in `names`: leftovers of a killed server.
    void retain(const std::set<std::string>& names);

    [[nodiscard]] std::filesystem::path path(const std::string& name) const { return m_folder / name; }
    /// Bytes in the folder.
    [[nodiscard]] int64_t used() const;

private:
    friend class SpoolFile;
    void reserve(int64_t bytes);
    void release(int64_t bytes);
    [[nodiscard]] int64_t sizeOnDisk() const;

    std::filesystem::path m_folder;
    int64_t m_maxBytes;
    mutable std::mutex m_mutex;
    int64_t m_used = 0;
};

} // namespace quillo::server
