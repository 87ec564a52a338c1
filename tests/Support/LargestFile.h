#pragma once

#include <csignal>

#include <sys/resource.h>

namespace quillo::test {

/// During its lifetime the kernel lets no file of this process grow beyond `bytes`, as with a full disk.
class LargestFile {
public:
    explicit LargestFile(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &m_previous);
        const rlimit limit{.rlim_cur = bytes, .rlim_max = m_previous.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~LargestFile() {
        ::setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_handler);
    }
    LargestFile(const LargestFile&) = delete;
    LargestFile& operator=(const LargestFile&) = delete;

private:
    rlimit m_previous{};
    void (*m_handler)(int);
};

} // namespace quillo::test
