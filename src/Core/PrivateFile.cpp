#include "Core/PrivateFile.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillo {

int Descriptor::release() { return std::exchange(m_descriptor, -1); }

void Descriptor::reset(int descriptor) {
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    m_descriptor = descriptor;
}

FileError::Cause FileError::causeOf(int error) {
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return Cause::diskFull;
    case EACCES:
    case EPERM:
    case EROFS:
        return Cause::denied;
    default:
        return Cause::other;
    }
}

namespace privateFile {

namespace {

constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;

FileError failure(const QString& action, const QString& path, int error) {
    return FileError(QStringLiteral("Could not %1 %2: %3").arg(action, path, describe(error)),
                     FileError::causeOf(error));
}

Descriptor open(const QString& path, int flags, const QString& action) {
    const auto name = QFile::encodeName(path);
    int descriptor = -1;
    do
        // Do not block if the path turns out to be a pipe or a device.
        descriptor = ::open(name.constData(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, ownerOnly);
    while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0)
        throw failure(action, path, errno);
    Descriptor opened(descriptor);
    struct stat info {};
    if (::fstat(descriptor, &info) != 0)
        throw failure(action, path, errno);
    if (!S_ISREG(info.st_mode))
        throw FileError(QStringLiteral("Could not %1 %2: it is not a regular file").arg(action, path));
    return opened;
}

void syncFolder(const QString& path) {
    // Synchronise the folder entry too; where that is not supported, the rename alone is the best we can do.
    const Descriptor folder(::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder)
        ::fsync(folder.get());
}

} // namespace

QString describe(int error) {
    switch (error) {
    case ENOSPC:
        return QStringLiteral("the disk is full; free some space");
    case EDQUOT:
        return QStringLiteral("your disk quota is used up; free some space");
    case EACCES:
    case EPERM:
        return QStringLiteral("permission was denied; check the permissions of the folder");
    case EROFS:
        return QStringLiteral("the file system is read-only; make it writable again");
    case EIO:
        return QStringLiteral("the disk reported an error; check the disk");
    case ENOENT:
        return QStringLiteral("it does not exist");
    case ELOOP:
        return QStringLiteral("it is a link, which is not followed");
    case EMFILE:
    case ENFILE:
        return QStringLiteral("too many files are open");
    case EFBIG:
        return QStringLiteral("the file would become larger than is allowed; raise the file size limit");
    default:
        return QString::fromLocal8Bit(std::strerror(error)); // NOLINT(concurrency-mt-unsafe): glibc's is safe
    }
}

void addFolder(const QString& path) {
    if (QFileInfo(path).isDir())
        return;
    const auto parent = QFileInfo(path).absolutePath();
    if (parent != path)
        addFolder(parent);
    if (::mkdir(QFile::encodeName(path).constData(), S_IRWXU) != 0 && errno != EEXIST)
        throw failure(QStringLiteral("make the folder"), path, errno);
}

void makeFolder(const QString& path) {
    addFolder(path);
    if (::chmod(QFile::encodeName(path).constData(), S_IRWXU) != 0)
        throw failure(QStringLiteral("make the folder"), path, errno);
}

Descriptor openForAppending(const QString& path) {
    return open(path, O_WRONLY | O_CREAT | O_APPEND, QStringLiteral("write to"));
}

Descriptor create(const QString& path) { return open(path, O_WRONLY | O_CREAT | O_TRUNC, QStringLiteral("write")); }

Descriptor openForReading(const QString& path) { return open(path, O_RDONLY, QStringLiteral("read")); }

qint64 size(const QString& path) {
    struct stat info {};
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0 || !S_ISREG(info.st_mode))
        return -1;
    return info.st_size;
}

int writeAll(int descriptor, const char* data, qint64 size, qint64& written) {
    while (size > 0) {
        const auto taken = ::write(descriptor, data, static_cast<size_t>(size));
        if (taken < 0 && errno == EINTR)
            continue;
        if (taken < 0)
            return errno;
        data += taken;
        size -= taken;
        written += taken;
    }
    return 0;
}

QByteArray readAt(int descriptor, qint64 offset, qint64 size) {
    QByteArray content(size, Qt::Uninitialized);
    qint64 filled = 0;
    while (filled < size) {
        const auto taken =
            ::pread(descriptor, content.data() + filled, static_cast<size_t>(size - filled), offset + filled);
        if (taken < 0 && errno == EINTR)
            continue;
        if (taken < 0)
            throw FileError(QStringLiteral("Could not read the file: %1").arg(describe(errno)));
        if (taken == 0)
            break;
        filled += taken;
    }
    content.truncate(filled);
    return content;
}

QByteArray read(const QString& path, qint64 limit) {
    const auto file = openForReading(path);
    auto content = readAt(file.get(), 0, limit + 1);
    if (content.size() > limit)
        throw FileError(QStringLiteral("Could not read %1: it is larger than %2 bytes").arg(path).arg(limit));
    return content;
}

void replace(const QString& path, const QByteArray& content, Durability durability) {
    const auto aside = path + QStringLiteral(".new");
    const auto action = QStringLiteral("write");
    {
        const auto file = create(aside);
        qint64 written = 0;
        int error = writeAll(file.get(), content.constData(), content.size(), written);
        if (error == 0 && durability == Durability::disk && ::fsync(file.get()) != 0)
            error = errno;
        if (error != 0) {
            remove(aside);
            throw failure(action, path, error);
        }
    }
    if (::rename(QFile::encodeName(aside).constData(), QFile::encodeName(path).constData()) != 0) {
        const int error = errno;
        remove(aside);
        throw failure(action, path, error);
    }
    if (durability == Durability::disk)
        syncFolder(QFileInfo(path).absolutePath());
}

bool remove(const QString& path) {
    return ::unlink(QFile::encodeName(path).constData()) == 0 || errno == ENOENT || errno == ENOTDIR;
}

} // namespace privateFile

} // namespace quillo
