#pragma once

#include <QString>

#include <memory>
#include <stdexcept>

struct sqlite3;

namespace quillo {

/// Reads a SQLite file that may not be ours. Read-only, any thread.
struct SQLiteHelper {
    SQLiteHelper() = delete;

    /// Its message begins with the domain "SQLiteHelper".
    class Error : public std::runtime_error {
    public:
        explicit Error(const QString& message)
            : std::runtime_error((QStringLiteral("SQLiteHelper: ") + message).toStdString()) {}
    };
    struct Closer {
        void operator()(sqlite3* database) const;
    };
    using Handle = std::unique_ptr<sqlite3, Closer>;

    /// Throws Error.
    static Handle open(const QString& path);
    /// False also when the file is not a database.
    static bool tableExists(const Handle& database, const QString& name);
};

} // namespace quillo
