#include "Data/Repository/StoreFile.h"

#include "Core/Log.h"
#include "Core/PrivateFile.h"
#include "Data/Repository/StoreSchema.h"
#include "Data/Storage/SQLiteHelper.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillo::storeFile {

namespace {

const std::array companions{QString(), QStringLiteral("-shm"), QStringLiteral("-wal")};

void log(const QString& message, LogLevel level) { appLog(message, level, QStringLiteral("DataContainer")); }

[[noreturn]] void fail(const QString& path, FileError::Cause cause, const QString& detail) {
    throw StoreError(cause == FileError::Cause::diskFull ? StoreError::Cause::diskFull : StoreError::Cause::unwritable,
                     QStringLiteral("The history (%1) cannot be written: %2.%3")
                         .arg(path, detail,
                              cause == FileError::Cause::other
                                  ? QStringLiteral(" Check the permissions of the file and its folder.")
                                  : QString()));
}

[[noreturn]] void fail(const QString& path, int error) {
    fail(path, FileError::causeOf(error), privateFile::describe(error));
}

/// SQLite gives the log files the mode of the database, so create the file as private before opening it.
void makePrivateFile(const QString& path) {
    // Not privateFile::create: a user may have put the history elsewhere behind a link.
    const Descriptor file(
        ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, S_IRUSR | S_IWUSR));
    if (!file || ::fchmod(file.get(), S_IRUSR | S_IWUSR) != 0)
        fail(path, errno);
    for (const auto& companion : companions)
        if (!companion.isEmpty())
            ::chmod(QFile::encodeName(path + companion).constData(), S_IRUSR | S_IWUSR);
}

StoreError damaged(const QString& path, const QString& detail) {
    return {StoreError::Cause::damaged, QStringLiteral("The history (%1) is damaged: %2.").arg(path, detail)};
}

/// A quick check for any size: the schema, the ends of every table, and the length of the file. The whole file is
/// checked only after damage was found in use.
void check(Database& database, const QString& path) {
    const auto pages = database.integer("PRAGMA page_count").value_or(0);
    const auto pageSize = database.integer("PRAGMA page_size").value_or(0);
    const bool hasLog = QFileInfo(path + QStringLiteral("-wal")).size() > 0;
    if (!hasLog && QFileInfo(path).size() < pages * pageSize)
        throw damaged(path, QStringLiteral("its end is missing"));
    QStringList tables;
    {
        Statement statement(database, "SELECT name FROM sqlite_master WHERE type = 'table' AND name IN "
                                      "('ZTRANSCRIPTIONRECORD', 'ZTAG', 'ZAPPSETTINGS', 'QuilloOrder', "
                                      "'QuilloSearch_data', 'QuilloSearch_idx')");
        while (statement.step())
            tables.append(statement.text(0));
    }
    for (const auto& table : tables)
        for (const auto* end : {"ASC", "DESC"}) {
            const auto key =
                table == QStringLiteral("QuilloSearch_idx") ? QStringLiteral("1") : QStringLiteral("rowid");
            Statement statement(database, QStringLiteral("SELECT * FROM %1 ORDER BY %2 %3 LIMIT 1")
                                              .arg(table, key, QString::fromLatin1(end))
                                              .toStdString());
            statement.step();
        }
    if (QFile::exists(Database::damageNotePath(path))) {
        Statement statement(database, "PRAGMA quick_check(1)");
        if (statement.step() && statement.text(0) != QStringLiteral("ok"))
            throw damaged(path, statement.text(0));
        QFile::remove(Database::damageNotePath(path));
    }
}

std::unique_ptr<Database> openChecked(const QString& path) {
    auto database = std::make_unique<Database>(path);
    // Do not modify the file until it is known to be sound.
    database->setCheckpointsOnClose(false);
    check(*database, path);
    database->execute("PRAGMA journal_mode = WAL");
    database->execute("PRAGMA synchronous = NORMAL");
    // Truncate the log after a large transaction; otherwise it would keep its size for good.
    database->execute("PRAGMA journal_size_limit = 4194304");
    storeSchema::prepare(*database);
    database->setCheckpointsOnClose(true);
    return database;
}

QString setAside(const QString& path, const QString& word) {
    const auto stamp = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    const auto base = path + u'.' + word + u'-' + stamp;
    auto kept = base;
    for (int attempt = 2; QFile::exists(kept); ++attempt)
        kept = base + u'-' + QString::number(attempt);
    for (const auto& companion : companions)
        if (QFile::exists(path + companion) && ::rename(QFile::encodeName(path + companion).constData(),
                                                        QFile::encodeName(kept + companion).constData()) != 0)
            fail(path + companion, errno);
    QFile::remove(Database::damageNotePath(path));
    return kept;
}

} // namespace

void makeFolder(const QString& path) {
    try {
        privateFile::makeFolder(path);
    } catch (const FileError& error) {
        fail(path, error.cause(), error.message());
    }
}

void migrateLegacy(const QString& legacyPath, const QString& path) {
    if (QFileInfo::exists(path) || !QFileInfo::exists(legacyPath))
        return;
    bool isOurs = false;
    try {
        isOurs = SQLiteHelper::tableExists(SQLiteHelper::open(legacyPath), QStringLiteral("ZTRANSCRIPTIONRECORD"));
    } catch (const SQLiteHelper::Error&) {
        // Not a database or not readable: treat both alike.
    }
    if (!isOurs) {
        log(QStringLiteral("⚠️ DataContainer: legacy default.store does not contain Quillo data — skipping migration"),
            LogLevel::warn);
        return;
    }
    for (const auto& companion : companions) {
        if (!QFileInfo::exists(legacyPath + companion))
            continue;
        QFile source(legacyPath + companion);
        if (source.copy(path + companion))
            continue;
        log(QStringLiteral("⚠️ DataContainer: migration failed (%1) — will create fresh store")
                .arg(source.errorString()),
            LogLevel::warn);
        for (const auto& copied : companions)
            QFile::remove(path + copied);
        return;
    }
    log(QStringLiteral("✅ DataContainer: migrated legacy store → %1").arg(path), LogLevel::info);
}

Opened open(const QString& path) {
    if (QFileInfo(path).isDir())
        fail(path, EISDIR);
    makePrivateFile(path);
    QStringList madeByOpening;
    for (const auto& companion : companions)
        if (!QFile::exists(path + companion))
            madeByOpening.append(path + companion);
    QString reason;
    auto cause = StoreError::Cause::damaged;
    try {
        return {openChecked(path), {}, cause};
    } catch (const StoreError& error) {
        cause = error.cause();
        if (cause != StoreError::Cause::damaged && cause != StoreError::Cause::newer)
            throw;
        reason = error.message();
    }
    for (const auto& companion : madeByOpening)
        QFile::remove(companion);
    const auto kept =
        setAside(path, cause == StoreError::Cause::newer ? QStringLiteral("newer") : QStringLiteral("damaged"));
    log(QStringLiteral("❌ DataContainer: %1 Kept as %2; starting a fresh store").arg(reason, kept), LogLevel::error);
    makePrivateFile(path);
    return {openChecked(path), kept, cause};
}

} // namespace quillo::storeFile
