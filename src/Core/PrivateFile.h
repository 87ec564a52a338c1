#pragma once

#include <QByteArray>
#include <QString>

#include <stdexcept>

namespace quillo {

/// A file operation that the system refused. `what()` is for the log: it names the file, the cause and, where there is
/// one, the next step. A window shows the text of the cause.
class FileError : public std::runtime_error {
public:
    enum class Cause {
        diskFull,
        denied,  ///< no permission, or a read-only file system
        removed, ///< the file or its folder went while it was open
        other,
    };
    explicit FileError(const QString& message, Cause cause = Cause::other)
        : std::runtime_error(message.toStdString()), m_cause(cause) {}
    [[nodiscard]] QString message() const { return QString::fromUtf8(what()); }
    [[nodiscard]] Cause cause() const { return m_cause; }
    /// The cause behind an `errno`.
    static Cause causeOf(int error);

private:
    Cause m_cause;
};

/// A file descriptor that closes itself.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : m_descriptor(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const { return m_descriptor; }
    [[nodiscard]] explicit operator bool() const { return m_descriptor >= 0; }
    int release();
    void reset(int descriptor = -1);

private:
    int m_descriptor = -1;
};

/// Files that only their owner may read: folders have mode 0700, files 0600, and links are not followed. Any thread.
/// Every function that returns no success throws FileError.
namespace privateFile {

/// What an `errno` means to the user, with the next step where one helps: "the disk is full; free some space".
QString describe(int error);

/// Creates the folder and its parents; existing ones are not changed.
void addFolder(const QString& path);
/// The same, and closes an existing folder to others.
void makeFolder(const QString& path);
/// Opens or creates a file for appending.
Descriptor openForAppending(const QString& path);
/// Creates an empty file for writing, replacing an existing one.
Descriptor create(const QString& path);
/// Opens a regular file for reading.
Descriptor openForReading(const QString& path);
/// Bytes in the file; -1 when there is no regular file.
qint64 size(const QString& path);

/// Writes everything, continuing after partial and interrupted writes. Returns 0 or the `errno`; in both cases
/// `written` grows by the number of bytes written.
int writeAll(int descriptor, const char* data, qint64 size, qint64& written);
/// Reads up to `size` bytes at `offset`, fewer only at the end of the file.
QByteArray readAt(int descriptor, qint64 offset, qint64 size);
/// Reads a whole small file; refuses one beyond `limit` bytes.
QByteArray read(const QString& path, qint64 limit);

enum class Durability {
    kernel, ///< survives the process
    disk,   ///< survives the machine
};
/// Replaces the file atomically: a reader sees the old content or the new, never a mixture.
void replace(const QString& path, const QByteArray& content, Durability durability);
/// Removes the file; true also when it did not exist.
bool remove(const QString& path);

} // namespace privateFile

} // namespace quillo
