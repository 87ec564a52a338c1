// Preloaded into a program to simulate a full disk below a folder. Files may grow by what is left of a budget; the
// write that reaches its end is short, as on a real disk, and later ones fail with ENOSPC. Overwriting in place needs
// no space. This works without privileges, and the errors reach the program through the real calls.

#include "DiskBudget.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

using quillo::test::DiskBudget;

namespace {

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

DiskBudget* mapBudget() {
    const char* file = std::getenv(quillo::test::diskBudgetFile);
    const int descriptor = file ? static_cast<int>(::syscall(SYS_openat, AT_FDCWD, file, O_RDWR | O_CLOEXEC)) : -1;
    if (descriptor < 0)
        return nullptr;
    void* page = ::mmap(nullptr, sizeof(DiskBudget), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    ::close(descriptor);
    return page == MAP_FAILED ? nullptr : static_cast<DiskBudget*>(page);
}

DiskBudget* budget() {
    static DiskBudget* const page = mapBudget();
    return page;
}

bool isFull() { return budget() && budget()->remaining.load() >= 0; }

bool isInFolder(const char* path) {
    static const char* const folder = std::getenv(quillo::test::diskBudgetFolder);
    if (!folder)
        return false;
    const size_t length = std::strlen(folder);
    return std::strncmp(path, folder, length) == 0 && (path[length] == '/' || path[length] == '\0');
}

/// The path of an open file; empty when it has none.
struct Path {
    explicit Path(int descriptor) {
        char link[64];
        std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
        const auto length = ::readlink(link, text, sizeof text - 1);
        text[std::max<ssize_t>(length, 0)] = '\0';
    }
    char text[PATH_MAX]{};
};

void noteRefusal(const char* path) {
    ++budget()->refusals;
    const auto* suffix = std::strrchr(path, '.');
    if (!suffix || std::strcmp(suffix, ".pcm") != 0)
        return;
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    int64_t none = 0;
    budget()->audioRefusedAt.compare_exchange_strong(none, now.tv_sec * 1'000'000'000 + now.tv_nsec);
}

/// Takes up to `bytes` from the budget.
int64_t take(int64_t bytes) {
    auto left = budget()->remaining.load();
    while (left >= 0) {
        const auto taken = std::min(left, bytes);
        if (budget()->remaining.compare_exchange_weak(left, left - taken))
            return taken;
    }
    return bytes; // the fault was removed in between
}

/// How many of `count` bytes at `offset` (negative: the current position) the disk takes; -1 with ENOSPC for none.
ssize_t admit(int descriptor, size_t count, off64_t offset) {
    if (!isFull() || count == 0)
        return static_cast<ssize_t>(count);
    struct stat64 status {};
    const Path path(descriptor);
    if (!isInFolder(path.text) || ::fstat64(descriptor, &status) != 0 || !S_ISREG(status.st_mode))
        return static_cast<ssize_t>(count);
    if (offset < 0)
        offset = ::fcntl(descriptor, F_GETFL) & O_APPEND ? status.st_size : ::lseek64(descriptor, 0, SEEK_CUR);
    const auto inPlace = std::clamp<int64_t>(status.st_size - offset, 0, static_cast<int64_t>(count));
    const auto admitted = inPlace + take(static_cast<int64_t>(count) - inPlace);
    if (admitted > 0)
        return admitted;
    noteRefusal(path.text);
    errno = ENOSPC;
    return -1;
}

bool refusesSync(int descriptor) {
    if (!isFull() || budget()->remaining.load() > 0)
        return false;
    const Path path(descriptor);
    if (!isInFolder(path.text))
        return false;
    noteRefusal(path.text);
    errno = ENOSPC;
    return true;
}

bool refusesSize(int descriptor, off64_t size) {
    if (!isFull())
        return false;
    struct stat64 status {};
    const Path path(descriptor);
    if (!isInFolder(path.text) || ::fstat64(descriptor, &status) != 0 || size <= status.st_size)
        return false;
    const auto wanted = size - status.st_size;
    if (take(wanted) == wanted)
        return false;
    noteRefusal(path.text);
    errno = ENOSPC;
    return true;
}

/// A name in a folder takes space, too.
bool refusesCreation(int folder, const char* path, int flags) {
    if (!isFull() || !(flags & O_CREAT || (flags & O_TMPFILE) == O_TMPFILE) || budget()->remaining.load() > 0)
        return false;
    if (path[0] != '/' || !isInFolder(path) || ((flags & O_CREAT) && ::faccessat(folder, path, F_OK, 0) == 0))
        return false;
    noteRefusal(path);
    errno = ENOSPC;
    return true;
}

mode_t modeOf(int flags, va_list arguments) {
    return flags & O_CREAT || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

} // namespace

#define QUILLO_OVERRIDE extern "C" __attribute__((visibility("default")))

QUILLO_OVERRIDE ssize_t write(int descriptor, const void* data, size_t count) {
    static auto* const original = next<ssize_t(int, const void*, size_t)>("write");
    const auto admitted = admit(descriptor, count, -1);
    return admitted < 0 ? admitted : original(descriptor, data, static_cast<size_t>(admitted));
}

QUILLO_OVERRIDE ssize_t pwrite64(int descriptor, const void* data, size_t count, off64_t offset) {
    static auto* const original = next<ssize_t(int, const void*, size_t, off64_t)>("pwrite64");
    const auto admitted = admit(descriptor, count, offset);
    return admitted < 0 ? admitted : original(descriptor, data, static_cast<size_t>(admitted), offset);
}

QUILLO_OVERRIDE ssize_t writev(int descriptor, const iovec* parts, int count) {
    static auto* const original = next<ssize_t(int, const iovec*, int)>("writev");
    // Write only the first part: callers have to expect short writes anyway.
    if (!isFull() || count < 1)
        return original(descriptor, parts, count);
    return write(descriptor, parts[0].iov_base, parts[0].iov_len);
}

QUILLO_OVERRIDE int fdatasync(int descriptor) {
    static auto* const original = next<int(int)>("fdatasync");
    return refusesSync(descriptor) ? -1 : original(descriptor);
}

QUILLO_OVERRIDE int fsync(int descriptor) {
    static auto* const original = next<int(int)>("fsync");
    return refusesSync(descriptor) ? -1 : original(descriptor);
}

QUILLO_OVERRIDE int ftruncate64(int descriptor, off64_t size) {
    static auto* const original = next<int(int, off64_t)>("ftruncate64");
    return refusesSize(descriptor, size) ? -1 : original(descriptor, size);
}

QUILLO_OVERRIDE int posix_fallocate64(int descriptor, off64_t offset, off64_t length) {
    static auto* const original = next<int(int, off64_t, off64_t)>("posix_fallocate64");
    return refusesSize(descriptor, offset + length) ? ENOSPC : original(descriptor, offset, length);
}

QUILLO_OVERRIDE int openat64(int folder, const char* path, int flags, ...) {
    static auto* const original = next<int(int, const char*, int, ...)>("openat64");
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = modeOf(flags, arguments);
    va_end(arguments);
    return refusesCreation(folder, path, flags) ? -1 : original(folder, path, flags, mode);
}

QUILLO_OVERRIDE int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = modeOf(flags, arguments);
    va_end(arguments);
    return openat64(AT_FDCWD, path, flags, mode);
}

// Where a file's size has 64 bits, these are the same functions.
static_assert(sizeof(off_t) == sizeof(off64_t));
#define QUILLO_ALIAS(name) QUILLO_OVERRIDE decltype(name##64) name __attribute__((alias(#name "64")));
QUILLO_ALIAS(pwrite)
QUILLO_ALIAS(ftruncate)
QUILLO_ALIAS(posix_fallocate)
QUILLO_ALIAS(openat)
QUILLO_ALIAS(open)
