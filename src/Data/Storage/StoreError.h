#pragma once

#include <QString>

#include <stdexcept>

namespace quillo {

/// The history store could not be opened, read or written. `what()` is for the log and the command line: what failed,
/// the cause and the next step, in English. A window shows the text of the cause.
class StoreError : public std::runtime_error {
public:
    enum class Cause {
        unwritable, ///< no permission, or a read-only file system
        diskFull,
        damaged,   ///< the file is not a valid database
        newer,     ///< written by a later version of Quillo
        busy,      ///< another program holds the file
        duplicate, ///< a record with that id exists
        other,
    };

    StoreError(Cause cause, const QString& message) : std::runtime_error(message.toStdString()), m_cause(cause) {}
    [[nodiscard]] Cause cause() const { return m_cause; }
    [[nodiscard]] QString message() const { return QString::fromUtf8(what()); }

private:
    Cause m_cause;
};

} // namespace quillo
