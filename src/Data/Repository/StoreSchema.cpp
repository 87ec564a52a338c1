#include "Data/Repository/StoreSchema.h"

#include "Data/Repository/EntityTable.h"
#include "Data/Repository/SearchIndex.h"

#include <QSet>
#include <QUuid>

namespace quillo::storeSchema {

namespace {

// The object store's own tables, as it creates them.
constexpr auto bookkeepingTables = R"(
CREATE TABLE IF NOT EXISTS Z_PRIMARYKEY (Z_ENT INTEGER PRIMARY KEY, Z_NAME VARCHAR, Z_SUPER INTEGER, Z_MAX INTEGER);
CREATE TABLE IF NOT EXISTS Z_METADATA (Z_VERSION INTEGER PRIMARY KEY, Z_UUID VARCHAR(255), Z_PLIST BLOB);
CREATE TABLE IF NOT EXISTS Z_MODELCACHE (Z_CONTENT BLOB);
-- Of our own: what later versions have to say to earlier ones, and how the index was made.
CREATE TABLE IF NOT EXISTS QuilloStore (name TEXT PRIMARY KEY, value INTEGER) WITHOUT ROWID;
INSERT OR IGNORE INTO QuilloStore VALUES ('compatible_since', 1);
)";

// Every row needs a unique identity, a date and a status. Further rows with the same identity get a new one.
constexpr auto rowRepairs = R"(
UPDATE ZTRANSCRIPTIONRECORD SET ZID = randomblob(16)
 WHERE typeof(ZID) <> 'blob' OR length(ZID) <> 16
    OR Z_PK NOT IN (SELECT min(Z_PK) FROM ZTRANSCRIPTIONRECORD GROUP BY ZID);
UPDATE ZTRANSCRIPTIONRECORD SET ZCREATEDAT = 0 WHERE typeof(ZCREATEDAT) NOT IN ('integer', 'real');
UPDATE ZTRANSCRIPTIONRECORD SET ZSTATUS = 'completed' WHERE ZSTATUS IS NULL OR ZSTATUS = '';
UPDATE ZTAG SET ZID = randomblob(16)
 WHERE typeof(ZID) <> 'blob' OR length(ZID) <> 16 OR Z_PK NOT IN (SELECT min(Z_PK) FROM ZTAG GROUP BY ZID);
)";

constexpr auto indexes = R"(
CREATE UNIQUE INDEX IF NOT EXISTS QuilloRecordById ON ZTRANSCRIPTIONRECORD (ZID);
CREATE INDEX IF NOT EXISTS QuilloRecordByStatus ON ZTRANSCRIPTIONRECORD (ZSTATUS);
CREATE INDEX IF NOT EXISTS QuilloRecordBySync ON ZTRANSCRIPTIONRECORD (ZSYNCEDAT);
CREATE INDEX IF NOT EXISTS QuilloRecordBySession ON ZTRANSCRIPTIONRECORD (ZSESSIONID);
CREATE INDEX IF NOT EXISTS QuilloRecordByPendingAudio ON ZTRANSCRIPTIONRECORD (ZPENDINGAUDIOID);
CREATE INDEX IF NOT EXISTS QuilloRecordByRetainedAudio ON ZTRANSCRIPTIONRECORD (ZAUDIORETAINEDID);
CREATE INDEX IF NOT EXISTS QuilloRecordByClientId ON ZTRANSCRIPTIONRECORD (ZCLIENTRECORDINGID);
CREATE UNIQUE INDEX IF NOT EXISTS QuilloTagById ON ZTAG (ZID);
)";

// What other devices must still hear of: nothing but the identity of a deleted record is kept, and when it was deleted
// (milliseconds since 1970). A record that comes back is no longer deleted.
constexpr auto deletions = R"(
CREATE TABLE IF NOT EXISTS QuilloDeleted (id BLOB PRIMARY KEY, deleted_at INTEGER NOT NULL) WITHOUT ROWID;
CREATE TRIGGER IF NOT EXISTS QuilloDeletionNoted AFTER DELETE ON ZTRANSCRIPTIONRECORD BEGIN
 INSERT OR REPLACE INTO QuilloDeleted VALUES (OLD.ZID, CAST(round((julianday('now') - 2440587.5) * 86400000) AS INTEGER));
END;
CREATE TRIGGER IF NOT EXISTS QuilloDeletionUndone AFTER INSERT ON ZTRANSCRIPTIONRECORD BEGIN
 DELETE FROM QuilloDeleted WHERE id = NEW.ZID;
END;
)";

QSet<QString> columnsOf(const Database& database, const char* table) {
    QSet<QString> names;
    Statement statement(database, std::string("SELECT upper(name) FROM pragma_table_info('") + table + "')");
    while (statement.step())
        names.insert(statement.text(0));
    return names;
}

template <typename Fields>
void prepareTable(Database& database, const EntityTable<Fields>& entity) {
    database.execute(std::string("CREATE TABLE IF NOT EXISTS ") + entity.table +
                     " (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER)");
    const auto present = columnsOf(database, entity.table);
    for (const auto& column : entity.columns)
        if (!present.contains(QString::fromLatin1(column.name)))
            database.execute(std::string("ALTER TABLE ") + entity.table + " ADD COLUMN " + column.name + ' ' +
                             column.type);
    const auto name = std::string(entity.entity);
    database.execute("INSERT INTO Z_PRIMARYKEY (Z_ENT, Z_NAME, Z_SUPER, Z_MAX) SELECT coalesce(max(Z_ENT), 0) + 1, '" +
                     name + "', 0, 0 FROM Z_PRIMARYKEY HAVING NOT EXISTS (SELECT 1 FROM Z_PRIMARYKEY WHERE Z_NAME = '" +
                     name + "')");
    database.execute("UPDATE Z_PRIMARYKEY SET Z_MAX = max(coalesce(Z_MAX, 0), (SELECT coalesce(max(Z_PK), 0) FROM " +
                     std::string(entity.table) + ")) WHERE Z_NAME = '" + name + "'");
}

void describeStore(Database& database) {
    Statement statement(database, "INSERT INTO Z_METADATA (Z_VERSION, Z_UUID, Z_PLIST) SELECT 1, ?1, ?2 "
                                  "WHERE NOT EXISTS (SELECT 1 FROM Z_METADATA)");
    statement.bind(1, QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
    statement.bindBlob(2, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                          "<key>SchemaVersion</key><string>1.0.0</string></dict></plist>\n");
    statement.step();
}

int64_t versionOf(const Database& database) { return database.integer("PRAGMA user_version").value_or(0); }

StoreError tooNew(const Database& database) {
    return {StoreError::Cause::newer, QStringLiteral("The history (%1) was written by a later version of Quillo, and "
                                                     "this one cannot use it. Update Quillo.")
                                          .arg(database.path())};
}

void requireUsable(const Database& database) {
    if (database.integer("SELECT value FROM QuilloStore WHERE name = 'compatible_since'").value_or(version + 1) >
        version)
        throw tooNew(database);
}

} // namespace

void prepare(Database& database) {
    const auto found = versionOf(database);
    if (found > version) {
        try {
            requireUsable(database);
        } catch (const StoreError& error) {
            // A later version that does not even have the table with this information.
            throw error.cause() == StoreError::Cause::other ? tooNew(database) : error;
        }
        return;
    }
    if (found == version && searchIndex::isComplete(database))
        return;
    Transaction transaction(database);
    database.execute(bookkeepingTables);
    if (found < version) {
        prepareTable(database, appSettingsTable());
        prepareTable(database, tagTable());
        prepareTable(database, recordTable());
        describeStore(database);
        // Without the triggers: the index is built once the rows are correct.
        searchIndex::drop(database);
        database.execute(rowRepairs);
        database.execute(indexes);
        database.execute(deletions);
    }
    searchIndex::build(database);
    database.execute("PRAGMA user_version = " + std::to_string(version));
    transaction.commit();
}

void requirePrepared(const Database& database) {
    const auto found = versionOf(database);
    if (found > version)
        requireUsable(database);
    else if (found < version || !searchIndex::isComplete(database))
        throw StoreError(StoreError::Cause::other,
                         QStringLiteral("The history (%1) was written by an earlier version of Quillo. Start Quillo "
                                        "once: it brings the file up to date.")
                             .arg(database.path()));
}

int64_t entityNumber(Database& database, const char* entity) {
    auto& statement = database.prepared("SELECT Z_ENT FROM Z_PRIMARYKEY WHERE Z_NAME = ?1");
    statement.bind(1, QString::fromLatin1(entity));
    const int64_t number = statement.step() ? statement.integer(0) : 0;
    statement.reset();
    return number;
}

int64_t takeKey(Database& database, const char* entity, const char* table) {
    auto& statement = database.prepared(
        std::string("UPDATE Z_PRIMARYKEY SET Z_MAX = max(coalesce(Z_MAX, 0), (SELECT coalesce(max(Z_PK), 0) FROM ") +
        table + ")) + 1 WHERE Z_NAME = ?1 RETURNING Z_MAX");
    statement.bind(1, QString::fromLatin1(entity));
    if (!statement.step())
        throw StoreError(StoreError::Cause::damaged, QStringLiteral("The history (%1) does not know its own tables. "
                                                                    "Restart Quillo.")
                                                         .arg(database.path()));
    const auto key = statement.integer(0);
    statement.reset();
    return key;
}

} // namespace quillo::storeSchema
