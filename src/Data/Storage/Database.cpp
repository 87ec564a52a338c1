#include "Data/Storage/Database.h"

#include "Data/Search/SearchFunctions.h"

#include <QFile>

#include <cerrno>

#include <sqlite3.h>

namespace quillo {

namespace {

/// Far longer than any of our readers locks the file.
constexpr int busyTimeoutMs = 5000;

StoreError::Cause causeOf(int result, int systemError) {
    if (systemError == ENOSPC || systemError == EDQUOT)
        return StoreError::Cause::diskFull;
    switch (result & 0xff) {
    case SQLITE_FULL:
        return StoreError::Cause::diskFull;
    case SQLITE_READONLY:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return StoreError::Cause::unwritable;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return StoreError::Cause::damaged;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return StoreError::Cause::busy;
    default:
        return StoreError::Cause::other;
    }
}

QString explanation(StoreError::Cause cause, const QString& detail) {
    switch (cause) {
    case StoreError::Cause::diskFull:
        return QStringLiteral("the disk is full. Free some space");
    case StoreError::Cause::unwritable:
        return QStringLiteral("it cannot be opened or written (%1). Check the permissions of the file and its folder")
            .arg(detail);
    case StoreError::Cause::damaged:
        return QStringLiteral("the file is damaged (%1). Restart Quillo: it keeps the file under another name and "
                              "starts a fresh one")
            .arg(detail);
    case StoreError::Cause::busy:
        return QStringLiteral("another program holds it. End that program and try again");
    default:
        return QStringLiteral("%1. Try again, and restart Quillo if that does not help").arg(detail);
    }
}

} // namespace

Database::Database(const QString& path, Access access) : m_path(path) {
    const QByteArray name = path.isEmpty() ? QByteArray(":memory:") : QFile::encodeName(path);
    const int mode = access == Access::readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
    const int result = sqlite3_open_v2(name.constData(), &m_database, mode | SQLITE_OPEN_NOMUTEX, nullptr);
    if (result != SQLITE_OK) {
        const auto failure = error(result);
        sqlite3_close_v2(m_database);
        throw failure;
    }
    sqlite3_extended_result_codes(m_database, 1);
    sqlite3_busy_timeout(m_database, busyTimeoutMs);
    registerSearchFunctions(m_database);
}

Database::~Database() {
    m_prepared.clear();
    sqlite3_close_v2(m_database);
}

void Database::execute(const char* sql) const {
    if (const int result = sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr); result != SQLITE_OK)
        throw error(result);
}

Statement& Database::prepared(const std::string& sql) {
    auto& statement = m_prepared[sql];
    if (!statement) {
        try {
            statement = std::make_unique<Statement>(*this, sql);
        } catch (...) {
            m_prepared.erase(sql);
            throw;
        }
    }
    statement->reset();
    return *statement;
}

std::optional<int64_t> Database::integer(std::string_view sql) const {
    Statement statement(*this, sql);
    return statement.step() ? std::optional(statement.integer(0)) : std::nullopt;
}

bool Database::inTransaction() const { return sqlite3_get_autocommit(m_database) == 0; }

void Database::setCheckpointsOnClose(bool enabled) const {
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, enabled ? 0 : 1, nullptr);
}

QString Database::damageNotePath(const QString& path) { return path + QStringLiteral(".suspect"); }

StoreError Database::error(int result) const {
    const auto detail = QString::fromUtf8(m_database ? sqlite3_errmsg(m_database) : sqlite3_errstr(result));
    const auto cause = causeOf(result, m_database ? sqlite3_system_errno(m_database) : 0);
    if (cause == StoreError::Cause::damaged && !m_path.isEmpty()) {
        QFile note(damageNotePath(m_path));
        if (note.open(QIODevice::WriteOnly))
            note.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    }
    const auto name = m_path.isEmpty() ? QStringLiteral("in memory") : m_path;
    return {cause, QStringLiteral("The history (%1): %2.").arg(name, explanation(cause, detail))};
}

Statement::Statement(const Database& database, std::string_view sql) : m_database(database) {
    check(sqlite3_prepare_v2(database.m_database, sql.data(), static_cast<int>(sql.size()), &m_statement, nullptr));
}

Statement::~Statement() { sqlite3_finalize(m_statement); }

void Statement::check(int result) const {
    if (result != SQLITE_OK)
        throw m_database.error(result);
}

Statement& Statement::bind(int index, int64_t value) {
    check(sqlite3_bind_int64(m_statement, index, value));
    return *this;
}

Statement& Statement::bind(int index, double value) {
    check(sqlite3_bind_double(m_statement, index, value));
    return *this;
}

Statement& Statement::bind(int index, const QString& text) {
    const auto bytes = text.toUtf8();
    check(sqlite3_bind_text64(m_statement, index, bytes.constData(), static_cast<sqlite3_uint64>(bytes.size()),
                              SQLITE_TRANSIENT, SQLITE_UTF8));
    return *this;
}

Statement& Statement::bindBlob(int index, const QByteArray& bytes) {
    check(sqlite3_bind_blob64(m_statement, index, bytes.constData(), static_cast<sqlite3_uint64>(bytes.size()),
                              SQLITE_TRANSIENT));
    return *this;
}

Statement& Statement::bindNull(int index) {
    check(sqlite3_bind_null(m_statement, index));
    return *this;
}

bool Statement::step() {
    const int result = sqlite3_step(m_statement);
    if (result == SQLITE_ROW)
        return true;
    if (result == SQLITE_DONE)
        return false;
    const auto failure = m_database.error(result);
    // An unfinished statement would prevent the end of its transaction.
    sqlite3_reset(m_statement);
    throw failure;
}

void Statement::reset() {
    // This repeats the error of the last step.
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

bool Statement::isNull(int column) const { return sqlite3_column_type(m_statement, column) == SQLITE_NULL; }

bool Statement::isNumber(int column) const {
    const int type = sqlite3_column_type(m_statement, column);
    return type == SQLITE_INTEGER || type == SQLITE_FLOAT;
}

int64_t Statement::integer(int column) const { return sqlite3_column_int64(m_statement, column); }

double Statement::real(int column) const { return sqlite3_column_double(m_statement, column); }

QString Statement::text(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
    return text ? QString::fromUtf8(text, sqlite3_column_bytes(m_statement, column)) : QString();
}

QByteArray Statement::blob(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(m_statement, column));
    return QByteArray(bytes, bytes ? sqlite3_column_bytes(m_statement, column) : 0);
}

Transaction::Transaction(Database& database) : m_database(database) { database.execute("BEGIN IMMEDIATE"); }

Transaction::~Transaction() {
    if (!m_isOpen || !m_database.inTransaction())
        return;
    try {
        m_database.execute("ROLLBACK");
    } catch (const StoreError&) {
        // SQLite has already rolled back after the failure that led here.
    }
}

void Transaction::commit() {
    m_database.execute("COMMIT");
    m_isOpen = false;
}

} // namespace quillo
