#include "Foundation/Files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillo::server {
namespace {

[[noreturn]] void fail(const std::string& action, const std::filesystem::path& path, int error) {
    throw std::runtime_error("cannot " + action + " " + path.string() + ": " + std::strerror(error));
}

class Descriptor {
public:
    explicit Descriptor(int value) : m_value(value) {}
    ~Descriptor() {
        if (m_value >= 0)
            ::close(m_value);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int get() const { return m_value; }

private:
    int m_value;
};

void writeAll(int descriptor, std::string_view content, const std::filesystem::path& path) {
    while (!content.empty()) {
        const auto written = ::write(descriptor, content.data(), content.size());
        if (written < 0) {
            if (errno == EINTR)
                continue;
            fail("write", path, errno);
        }
        content.remove_prefix(static_cast<size_t>(written));
    }
}

} // namespace

void makePrivateFolder(const std::filesystem::path& folder) {
    std::error_code error;
    if (folder.has_parent_path())
        std::filesystem::create_directories(folder.parent_path(), error);
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        fail("make the folder", folder, errno);
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0)
        fail("look at the folder", folder, errno);
    if (!S_ISDIR(status.st_mode))
        fail("use as a folder", folder, ENOTDIR);
    if ((status.st_mode & 0777) != 0700 && ::chmod(folder.c_str(), 0700) != 0)
        fail("make private the folder", folder, errno);
}

std::optional<std::string> readFile(const std::filesystem::path& file) {
    const Descriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (descriptor.get() < 0) {
        if (errno == ENOENT)
            return std::nullopt;
        fail("open", file, errno);
    }
    std::string content;
    char block[16384];
    for (;;) {
        const auto count = ::read(descriptor.get(), block, sizeof block);
        if (count == 0)
            return content;
        if (count < 0 && errno != EINTR)
            fail("read", file, errno);
        if (count > 0)
            content.append(block, static_cast<size_t>(count));
    }
}

void writeFileAtomically(const std::filesystem::path& file, std::string_view content, unsigned mode) {
    const std::filesystem::path temporary = file.string() + "." + std::to_string(::getpid()) + ".new";
    try {
        const Descriptor descriptor(
            ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, mode));
        if (descriptor.get() < 0)
            fail("create", temporary, errno);
        if (::fchmod(descriptor.get(), mode) != 0)
            fail("set the mode of", temporary, errno);
        writeAll(descriptor.get(), content, temporary);
        if (::fsync(descriptor.get()) != 0)
            fail("write", temporary, errno);
        if (::rename(temporary.c_str(), file.c_str()) != 0)
            fail("replace", file, errno);
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
    const Descriptor folder(::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() >= 0)
        ::fsync(folder.get());
}

FileLock::FileLock(const std::filesystem::path& file)
    : m_descriptor(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (m_descriptor < 0)
        fail("open the lock file", file, errno);
    while (::flock(m_descriptor, LOCK_EX) != 0) {
        if (errno == EINTR)
            continue;
        const int error = errno;
        ::close(m_descriptor);
        fail("lock", file, error);
    }
}

FileLock::~FileLock() { ::close(m_descriptor); }

} // namespace quillo::server
