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
    : spool_(std::move(spool)), name_(std::move(name)), descriptor_(descriptor) {}

SpoolFile::~SpoolFile() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
    if (kept_)
        return;
    ::unlink(spool_->path(name_).c_str());
    spool_->release(size_);
}

void SpoolFile::write(std::string_view bytes) {
    spool_->reserve(static_cast<int64_t>(bytes.size()));
    size_ += static_cast<int64_t>(bytes.size());
    while (!bytes.empty()) {
        const auto written = ::write(descriptor_, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            diskFailed("write", errno);
        bytes.remove_prefix(static_cast<size_t>(written));
    }
}

void SpoolFile::close() {
    if (descriptor_ < 0)
        return;
    if (::fdatasync(descriptor_) != 0)
        diskFailed("store", errno);
    ::close(descriptor_);
    descriptor_ = -1;
}

Spool::Spool(std::filesystem::path folder, int64_t maxBytes) : folder_(std::move(folder)), maxBytes_(maxBytes) {
    makePrivateFolder(folder_);
    used_ = sizeOnDisk();
}

int64_t Spool::sizeOnDisk() const {
    int64_t size = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder_))
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
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        const std::string name = entry.path().filename();
        if (!names.contains(name))
            remove(name);
    }
}

int64_t Spool::used() const {
    const std::scoped_lock lock(mutex_);
    return used_;
}

void Spool::reserve(int64_t bytes) {
    const std::scoped_lock lock(mutex_);
    // An administrator who deletes an account does so in another process, which cannot give the bytes back.
    if (used_ + bytes > maxBytes_)
        used_ = std::min(used_, sizeOnDisk());
    if (used_ + bytes > maxBytes_)
        throw UploadError(507, "INSUFFICIENT_STORAGE",
                          "The server holds as much audio as it may; the upload was dropped. Try again when it has "
                          "recognised some of it.");
    used_ += bytes;
}

void Spool::release(int64_t bytes) {
    const std::scoped_lock lock(mutex_);
    used_ -= bytes;
}

} // namespace quillo::server
