#include "Uploads/Spool.h"

#include "Foundation/Encoding.h"
#include "Foundation/Files.h"
#include "Foundation/Log.h"
#include "Uploads/UploadError.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace quillo::server {
namespace {

[[noreturn]] void diskFailed(const char* action, int error) {
    log(LogLevel::error, "uploads", std::string("cannot ") + action + " an upload: " + std::strerror(error));
    if (error == ENOSPC || error == EDQUOT || error == EFBIG)
        throw UploadError(507, "INSUFFICIENT_STORAGE",
                          "The server's disk is full; the upload was dropped. Try again later, or free space on it.");
    throw UploadError(500, "STORAGE_FAILED",
                      "The server could not store the upload; its log says why. Try again later.");
}

int64_t sizeOf(const std::filesystem::path& file) {
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    return error ? 0 : static_cast<int64_t>(size);
}

} // namespace

SpoolFile::SpoolFile(std::shared_ptr<Spool> spool, std::string name, int descriptor)
    : m_spool(std::move(spool)), m_name(std::move(name)), m_descriptor(descriptor) {}

SpoolFile::~SpoolFile() {
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    if (m_kept)
        return;
    ::unlink(m_spool->path(m_name).c_str());
    m_spool->release(m_size);
}

void SpoolFile::write(std::string_view bytes) {
    m_spool->reserve(static_cast<int64_t>(bytes.size()));
    m_size += static_cast<int64_t>(bytes.size());
    while (!bytes.empty()) {
        const auto written = ::write(m_descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            diskFailed("write", errno);
        bytes.remove_prefix(static_cast<size_t>(written));
    }
}

void SpoolFile::close() {
    if (m_descriptor < 0)
        return;
    if (::fdatasync(m_descriptor) != 0)
        diskFailed("store", errno);
    ::close(m_descriptor);
    m_descriptor = -1;
}

Spool::Spool(std::filesystem::path folder, int64_t maxBytes) : m_folder(std::move(folder)), m_maxBytes(maxBytes) {
    makePrivateFolder(m_folder);
    m_used = sizeOnDisk();
}

int64_t Spool::sizeOnDisk() const {
    int64_t size = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder))
        size += sizeOf(entry.path());
    return size;
}

std::unique_ptr<SpoolFile> Spool::create() {
    const std::string name = randomUuid() + ".audio";
    const int descriptor = ::open(path(name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0)
        diskFailed("begin", errno);
    return std::unique_ptr<SpoolFile>(new SpoolFile(shared_from_this(), name, descriptor));
}

void Spool::remove(const std::string& name) {
    const auto size = sizeOf(path(name));
    if (::unlink(path(name).c_str()) == 0)
        release(size);
    else if (errno != ENOENT)
        log(LogLevel::error, "uploads", "cannot remove " + path(name).string() + ": " + std::strerror(errno));
}

void Spool::retain(const std::set<std::string>& names) {
    for (const auto& entry : std::filesystem::directory_iterator(m_folder)) {
        const std::string name = entry.path().filename();
        if (!names.contains(name))
            remove(name);
    }
}

int64_t Spool::used() const {
    const std::scoped_lock lock(m_mutex);
    return m_used;
}

void Spool::reserve(int64_t bytes) {
    const std::scoped_lock lock(m_mutex);
    // Measure again: deleting an account runs in another process, which cannot reduce our count.
    if (m_used + bytes > m_maxBytes)
        m_used = std::min(m_used, sizeOnDisk());
    if (m_used + bytes > m_maxBytes)
        throw UploadError(507, "INSUFFICIENT_STORAGE",
                          "The server holds as much audio as it may; the upload was dropped. Try again when it has "
                          "recognised some of it.");
    m_used += bytes;
}

void Spool::release(int64_t bytes) {
    const std::scoped_lock lock(m_mutex);
    m_used -= bytes;
}

} // namespace quillo::server
