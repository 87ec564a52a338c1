#include "Storage/Database.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillo::server {
namespace {

/// SQLite gives its journal files the mode of the database, so create the file as private before opening it.
void makePrivateFile(const std::string& file) {
    const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0)
        throw DatabaseError("cannot open " + file + ": " + std::strerror(errno));
    const int result = ::fchmod(descriptor, 0600);
    const int error = errno;
    ::close(descriptor);
    if (result != 0)
        throw DatabaseError("cannot make " + file + " private: " + std::strerror(error));
}

} // namespace

void Database::Closer::operator()(sqlite3* database) const { sqlite3_close_v2(database); }

Database::Database(const std::filesystem::path& file, std::span<const std::string_view> migrations)
    : m_file(file.string()) {
    makePrivateFile(m_file);
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(m_file.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    m_database.reset(handle);
    if (result != SQLITE_OK)
        throw DatabaseError("cannot open " + m_file + ": " + sqlite3_errstr(result));
    sqlite3_busy_timeout(handle, 5000);
    execute("PRAGMA journal_mode = WAL");
    execute("PRAGMA synchronous = NORMAL");
    execute("PRAGMA foreign_keys = ON");
    migrate(migrations);
}

void Database::migrate(std::span<const std::string_view> migrations) {
    for (;;) {
        // The version is read under the write lock, so that two servers starting together do not migrate twice.
        Transaction transaction(*this);
        const size_t version = schemaVersion();
        if (version > migrations.size())
            throw DatabaseError(m_file + " was written by a newer version of quillo-server; update the program");
        if (version == migrations.size())
            return;
        execute(migrations[version]);
        execute("PRAGMA user_version = " + std::to_string(version + 1));
        transaction.commit();
    }
}

size_t Database::schemaVersion() const {
    Statement query(*this, "PRAGMA user_version");
    query.step();
    return static_cast<size_t>(query.integer(0));
}

void Database::execute(std::string_view sql) const {
    char* message = nullptr;
    if (sqlite3_exec(m_database.get(), std::string(sql).c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
        const std::string text = message ? message : "unknown error";
        sqlite3_free(message);
        throw DatabaseError(m_file + ": " + text);
    }
}

int64_t Database::changes() const { return sqlite3_changes64(m_database.get()); }

Statement::Statement(const Database& database, std::string_view sql) : m_database(database.m_database.get()) {
    check(sqlite3_prepare_v2(m_database, sql.data(), static_cast<int>(sql.size()), &m_statement, nullptr));
}

Statement::~Statement() { sqlite3_finalize(m_statement); }

void Statement::check(int result) const {
    if (result != SQLITE_OK)
        throw DatabaseError(std::string("database: ") + sqlite3_errmsg(m_database));
}

Statement& Statement::bind(int index, int64_t value) {
    check(sqlite3_bind_int64(m_statement, index, value));
    return *this;
}

Statement& Statement::bind(int index, std::string_view text) {
    check(sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT));
    return *this;
}

Statement& Statement::bindBlob(int index, std::span<const uint8_t> bytes) {
    check(sqlite3_bind_blob(m_statement, index, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT));
    return *this;
}

bool Statement::step() {
    const int result = sqlite3_step(m_statement);
    if (result == SQLITE_ROW)
        return true;
    if (result != SQLITE_DONE)
        check(result);
    return false;
}

int64_t Statement::integer(int column) const { return sqlite3_column_int64(m_statement, column); }

std::string Statement::text(int column) const {
    const auto* text = sqlite3_column_text(m_statement, column);
    return text ? std::string(reinterpret_cast<const char*>(text),
                              static_cast<size_t>(sqlite3_column_bytes(m_statement, column)))
                : std::string();
}

bool Statement::isNull(int column) const { return sqlite3_column_type(m_statement, column) == SQLITE_NULL; }

Transaction::Transaction(const Database& database) : m_database(database) { m_database.execute("BEGIN IMMEDIATE"); }

Transaction::~Transaction() {
    if (!m_open)
        return;
    try {
        m_database.execute("ROLLBACK");
    } catch (const DatabaseError&) {
        // SQLite has already rolled back after the failure that led here.
    }
}

void Transaction::commit() {
    m_database.execute("COMMIT");
    m_open = false;
}

} // namespace quillo::server
