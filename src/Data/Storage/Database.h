#pragma once

#include "Data/Storage/StoreError.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace quillo {

class Database;

/// A prepared statement: bind from index 1, step until false, read from column 0. Functions throw StoreError on
/// failure.
class Statement {
public:
    Statement(const Database& database, std::string_view sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, int64_t value);
    Statement& bind(int index, double value);
    Statement& bind(int index, const QString& text);
    Statement& bindBlob(int index, const QByteArray& bytes);
    Statement& bindNull(int index);

    /// True while there is a row.
    bool step();
    /// Resets the statement for new bindings and steps.
    void reset();

    // A value of another type is converted as SQLite does; NULL reads as 0 or empty.
    [[nodiscard]] bool isNull(int column) const;
    [[nodiscard]] bool isNumber(int column) const;
    [[nodiscard]] int64_t integer(int column) const;
    [[nodiscard]] double real(int column) const;
    [[nodiscard]] QString text(int column) const;
    [[nodiscard]] QByteArray blob(int column) const;

private:
    void check(int result) const;

    const Database& m_database;
    sqlite3_stmt* m_statement = nullptr;
};

/// One connection to a SQLite file, with the functions that the store's triggers call. Main thread.
///
/// Committed changes survive the end of the process. After a crash of the machine the file is intact, but the last
/// transactions may be lost.
class Database {
public:
    enum class Access { readWrite, readOnly };

    /// An empty `path` means a database in memory. Does not read the file yet.
    explicit Database(const QString& path, Access access = Access::readWrite);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    /// Runs statements that return nothing.
    void execute(const char* sql) const;
    void execute(const std::string& sql) const { execute(sql.c_str()); }
    /// A cached statement, reset; used by one caller at a time.
    Statement& prepared(const std::string& sql);
    /// The first column of the first row; nothing without a row.
    [[nodiscard]] std::optional<int64_t> integer(std::string_view sql) const;
    /// Whether a transaction is open.
    [[nodiscard]] bool inTransaction() const;
    /// While off, closing does not change the file and its log.
    void setCheckpointsOnClose(bool enabled) const;
    [[nodiscard]] const QString& path() const { return m_path; }

    /// Describes a result code for the user. Leaves a note for the next start when the file is damaged.
    [[nodiscard]] StoreError error(int result) const;
    /// The file of the note; if it exists, the next start checks the whole database.
    static QString damageNotePath(const QString& path);

private:
    friend class Statement;

    QString m_path;
    sqlite3* m_database = nullptr;
    std::unordered_map<std::string, std::unique_ptr<Statement>> m_prepared;
};

/// Takes the write lock at once; rolls back unless committed.
class Transaction {
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

private:
    Database& m_database;
    bool m_isOpen = true;
};

} // namespace quillo
