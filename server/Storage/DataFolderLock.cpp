#include "Storage/DataFolderLock.h"

#include "Foundation/Files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>

namespace quillo::server {
namespace {

[[noreturn]] void refuse(const std::filesystem::path& folder, const std::filesystem::path& file) {
    std::istringstream holder(readFile(file).value_or(""));
    std::string process, address;
    std::string other = "another quillo-server";
    if (holder >> process >> address)
        other += " (process " + process + ", " + address + ")";
    throw DataFolderInUse(folder.string() + " is in use by " + other +
                          ". Stop that one, or choose another folder with --data. The Quillo application starts a "
                          "server of its own, unless QUILLO_SERVER_HOST names one.");
}

} // namespace

DataFolderLock::DataFolderLock(const std::filesystem::path& folder, const std::string& address) {
    const auto file = folder / "server.lock";
    m_descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (m_descriptor < 0)
        throw std::runtime_error("cannot open " + file.string() + ": " + std::strerror(errno));
    if (::flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        ::close(m_descriptor);
        if (error == EWOULDBLOCK)
            refuse(folder, file);
        throw std::runtime_error("cannot lock " + file.string() + ": " + std::strerror(error));
    }
    const std::string content = std::to_string(::getpid()) + " " + address + "\n";
    // For those who look; the lock holds without it, as on a full disk.
    if (::ftruncate(m_descriptor, 0) == 0) [[maybe_unused]]
        const auto written = ::write(m_descriptor, content.data(), content.size());
}

DataFolderLock::~DataFolderLock() { ::close(m_descriptor); }

} // namespace quillo::server
