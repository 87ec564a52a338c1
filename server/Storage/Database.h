#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace quillo::server {

/// An error of SQLite, with the file and the purpose of the statement.
class DatabaseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Database;

/// A prepared statement. Bind from index 1, step until false, read from column 0; used by one thread at a time.
class Statement {
public:
    Statement(const Database& database, std::string_view sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, int64_t value);
    Statement& bind(int index, std::string_view text);
    Statement& bindBlob(int index, std::span<const uint8_t> bytes);

    /// True while there is a row. Throws DatabaseError.
    bool step();

    [[nodiscard]] int64_t integer(int column) const;
    [[nodiscard]] std::string text(int column) const;
    [[nodiscard]] bool isNull(int column) const;

private:
    void check(int result) const;

    sqlite3* m_database;
    sqlite3_stmt* m_statement = nullptr;
};

/// A SQLite file in WAL mode, readable only by its owner. Not thread-safe: its owner guards it with a mutex.
class Database {
public:
    /// Opens or creates `file` and brings its schema up to date: `migrations[n]` upgrades from `user_version` n to n+1,
    /// each in its own transaction. Throws DatabaseError, also when the file was written by a newer version.
    Database(const std::filesystem::path& file, std::span<const std::string_view> migrations);

    /// Runs statements that return nothing. Throws DatabaseError.
    void execute(std::string_view sql) const;
    /// Rows changed by the last statement.
    [[nodiscard]] int64_t changes() const;

private:
    friend class Statement;
    [[nodiscard]] size_t schemaVersion() const;
    void migrate(std::span<const std::string_view> migrations);

    struct Closer {
        void operator()(sqlite3* database) const;
    };
    std::string m_file;
    std::unique_ptr<sqlite3, Closer> m_database;
};

/// A transaction that takes the write lock at once and rolls back unless committed.
class Transaction {
public:
    explicit Transaction(const Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

private:
    const Database& m_database;
    bool m_open = true;
};

} // namespace quillo::server
