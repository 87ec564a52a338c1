#include "Data/Storage/Database.h"
#include "Data/Storage/SQLiteHelper.h"
#include "StoreFixture.h"

#include <sys/stat.h>

namespace quillo::test {
namespace {

class StoreFile : public StoreFixture {
protected:
    static QString store() { return DataContainer::storeURL(); }
    static QString legacy() { return DataContainer::legacyStoreURL(); }

    /// A database at `path` that `sql` makes.
    static void make(const QString& path, const QByteArray& sql) {
        write(path, {});
        Database(path).execute(sql.constData());
    }
    static void makeFromFixture(const QString& path) {
        const auto sql = bytes(QStringLiteral(QUILLO_TEST_FIXTURES "/legacy.sql"));
        ASSERT_FALSE(sql.isEmpty());
        make(path, sql);
    }
    static QString cell(const char* sql) {
        Database database(store());
        Statement statement(database, sql);
        return statement.step() ? statement.text(0) : QStringLiteral("no row");
    }
};

TEST_F(StoreFile, IsPrivateAndLaidOutAsBefore) {
    const mode_t mask = ::umask(0);
    auto& context = open();
    context.insert(newRecord(QStringLiteral("a")));
    context.insert(newRecord(QStringLiteral("b")));
    context.save();
    const auto mode = [](const QString& path) {
        struct stat info {};
        return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 0777U : 0U;
    };
    EXPECT_EQ(mode(DataContainer::storeDirectory()), 0700U);
    for (const auto* suffix : {u"", u"-wal", u"-shm"})
        EXPECT_EQ(mode(store() + QString::fromUtf16(suffix)), 0600U);
    ::umask(mask);
    EXPECT_EQ(cell("SELECT group_concat(Z_ENT || Z_NAME || Z_MAX) FROM Z_PRIMARYKEY"),
              QStringLiteral("1AppSettings0,2Tag0,3TranscriptionRecord2"));
    EXPECT_EQ(cell("SELECT typeof(ZID) || length(ZID) || Z_ENT || Z_OPT || typeof(ZCREATEDAT) FROM "
                   "ZTRANSCRIPTIONRECORD WHERE Z_PK = 2"),
              QStringLiteral("blob1631integer"));
    // Numbers of deleted rows are never given again.
    for (const auto& record : context.fetch({}))
        context.remove(record);
    context.save();
    context.insert(newRecord(QStringLiteral("c")));
    context.save();
    EXPECT_EQ(cell("SELECT Z_PK FROM ZTRANSCRIPTIONRECORD"), QStringLiteral("3"));
}

TEST_F(StoreFile, OpensALegacyStoreWithAllItsRows) {
    makeFromFixture(legacy());
    const auto before = bytes(legacy());
    auto& context = open();
    EXPECT_EQ(bytes(legacy()), before);
    EXPECT_EQ(context.count(), 5);

    const auto record = context.record(QUuid(QStringLiteral("{00112233-4455-6677-8899-aabbccddeeff}")));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->text, QStringLiteral("Grüße aus dem Süden"));
    EXPECT_EQ(record->createdAt.toString(Qt::ISODateWithMs), QStringLiteral("2026-05-23T13:09:27.250Z"));
    EXPECT_EQ(record->durationMs, 6200);
    EXPECT_TRUE(record->isFavorite);
    EXPECT_EQ(record->sourceApp, QStringLiteral("Firefox"));
    EXPECT_FALSE(record->title || record->syncedAt || record->tagNamesData);
    ASSERT_TRUE(record->meetingSegments());
    EXPECT_EQ(record->meetingSegments()->at(0).text, QStringLiteral("one"));
    RecordQuery search;
    search.search = QStringLiteral("GRUSSE sude");
    EXPECT_EQ(context.fetch(search), QList<RecordPointer>{record});
    // Every row has an identity of its own, and a state.
    QSet<QUuid> ids;
    for (const auto& any : context.fetch({})) {
        ids.insert(any->id);
        EXPECT_FALSE(any->status.isEmpty());
        EXPECT_TRUE(any->createdAt.isValid());
    }
    EXPECT_EQ(ids.size(), 5);
    ASSERT_TRUE(context.appSettings(QStringLiteral("user-1")));
    EXPECT_EQ(context.appSettings(QStringLiteral("user-1"))->insertionMode, QStringLiteral("type"));
    EXPECT_EQ(context.appSettings(QStringLiteral("user-1"))->selectedLanguages, QStringList{QStringLiteral("de")});

    record->title = QStringLiteral("new");
    context.insert(newRecord(QStringLiteral("added")));
    context.save();
    EXPECT_EQ(cell("SELECT ZFUTUREFIELD || Z_OPT FROM ZTRANSCRIPTIONRECORD WHERE Z_PK = 3"),
              QStringLiteral("kept as it is3"));
    // Behind the highest number ever used, not behind the rows that are left.
    EXPECT_EQ(cell("SELECT Z_PK || '/' || Z_ENT FROM ZTRANSCRIPTIONRECORD WHERE ZTEXT = 'added'"),
              QStringLiteral("42/4"));
    EXPECT_EQ(cell("SELECT group_concat(Z_ENT || Z_NAME || Z_MAX) FROM (SELECT * FROM Z_PRIMARYKEY ORDER BY Z_ENT)"),
              QStringLiteral("1AppSettings1,4TranscriptionRecord42,16001CHANGE9,16002Tag0"));
    EXPECT_EQ(cell("SELECT Z_UUID FROM Z_METADATA"), QStringLiteral("0A1B2C3D-0000-4000-8000-000000000000"));
    EXPECT_EQ(open().count(), 6);
}

TEST_F(StoreFile, OfAnyEarlierVersionRemembersWhatIsDeletedFromNowOn) {
    const QUuid id(QStringLiteral("{00112233-4455-6677-8899-aabbccddeeff}"));
    for (const bool isLegacy : {true, false}) {
        if (isLegacy)
            makeFromFixture(legacy());
        else
            Database(store()).execute("DROP TABLE QuilloDeleted; DROP TRIGGER QuilloDeletionNoted;"
                                      "DROP TRIGGER QuilloDeletionUndone; PRAGMA user_version = 1");
        auto& context = open();
        auto record = context.record(id);
        ASSERT_TRUE(record);
        const RecordFields fields = *record;
        context.remove(record);
        EXPECT_EQ(context.count(), 4) << "which writes, and takes it back";
        EXPECT_EQ(cell("SELECT count(*) FROM QuilloDeleted"), QStringLiteral("0"));
        context.save();
        EXPECT_EQ(cell("SELECT hex(id) FROM QuilloDeleted"), QStringLiteral("00112233445566778899AABBCCDDEEFF"));
        EXPECT_EQ(cell("SELECT abs(deleted_at - 1000 * strftime('%s', 'now')) < 60000 FROM QuilloDeleted"),
                  QStringLiteral("1"));
        context.insert(std::make_shared<TranscriptionRecord>(fields));
        context.save();
        EXPECT_EQ(cell("SELECT count(*) FROM QuilloDeleted"), QStringLiteral("0"));
        record.reset();
        container.reset();
    }
}

TEST_F(StoreFile, TakesOverTheLogOfALegacyStore) {
    makeFromFixture(legacy());
    // The rows that the program was killed before it had put them into the file itself.
    Database live(legacy());
    live.execute("PRAGMA journal_mode = WAL");
    live.execute("UPDATE ZTRANSCRIPTIONRECORD SET ZTEXT = 'from the log' WHERE Z_PK = 3");
    ASSERT_GT(QFileInfo(legacy() + QStringLiteral("-wal")).size(), 0);
    RecordQuery search;
    search.search = QStringLiteral("log");
    EXPECT_EQ(texts(open().fetch(search)), QStringList{QStringLiteral("from the log")});
}

TEST_F(StoreFile, LeavesALegacyFileThatIsNotOurs) {
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"another program's database", [] { make(legacy(), "CREATE TABLE ZOTHER (x)"); }},
        {"no database", [] { write(legacy(), "plain text"); }},
        {"empty", [] { write(legacy(), {}); }},
    };
    for (const auto& [what, prepare] : cases) {
        prepare();
        const auto before = bytes(legacy());
        EXPECT_EQ(open().count(), 0) << what;
        EXPECT_EQ(bytes(legacy()), before) << what;
        container.reset();
        QDir(DataContainer::storeDirectory()).removeRecursively();
    }
}

TEST_F(StoreFile, ThatExistsSuppressesTheMigration) {
    open().insert(newRecord(QStringLiteral("own")));
    container->mainContext().save();
    makeFromFixture(legacy());
    EXPECT_EQ(texts(open().fetch({})), QStringList{QStringLiteral("own")});
}

TEST_F(StoreFile, StartsFreshWhenTheMigrationFails) {
    makeFromFixture(legacy());
    // A folder in the place of a companion cannot be copied.
    QDir().mkpath(legacy() + QStringLiteral("-wal"));
    EXPECT_EQ(open().count(), 0);
}

TEST_F(StoreFile, ThatIsDamagedIsSetAsideWithItsBytes) {
    auto& context = open();
    for (int i = 0; i < 300; ++i)
        context.insert(newRecord(QStringLiteral("some text that fills pages ").repeated(20), i));
    context.save();
    container.reset();
    const auto sound = bytes(store());
    auto halfZero = sound;
    halfZero.replace(4096, sound.size() - 4096, QByteArray(sound.size() - 4096, '\0'));
    auto badHeader = sound;
    badHeader.replace(0, 16, "SQLite format 4\0");
    const std::pair<const char*, QByteArray> cases[] = {
        {"text", "this is no database, and long enough to be looked at as one. " + QByteArray(4096, 'x')},
        {"header", badHeader},
        {"end missing", sound.left(sound.size() / 2)},
        {"odd end missing", sound.left(sound.size() - 100)},
        {"pages of zeros", halfZero}};
    for (const auto& [what, content] : cases) {
        write(store(), content);
        auto& fresh = open();
        ASSERT_TRUE(container->setAside()) << what;
        EXPECT_EQ(bytes(container->setAside()->keptAs), content) << what;
        EXPECT_TRUE(container->setAside()->keptAs.contains(QStringLiteral("quillo.store.damaged-"))) << what;
        EXPECT_EQ(fresh.count(), 0) << what;
        fresh.insert(newRecord(QStringLiteral("new")));
        fresh.save();
        EXPECT_EQ(open().count(), 1) << what;
        EXPECT_FALSE(container->setAside()) << what;
        container.reset();
    }
    EXPECT_EQ(files(QStringLiteral("quillo.store.damaged-*")).size(), 5);
}

TEST_F(StoreFile, DamageMetInUseIsFoundAtTheNextStart) {
    auto& context = open();
    QList<QUuid> ids;
    for (int i = 0; i < 2000; ++i) {
        const auto record = newRecord(QStringLiteral("words that fill the pages in the middle ").repeated(20), i);
        ids.append(record->id);
        context.insert(record);
    }
    context.save();
    container.reset();
    auto content = bytes(store());
    const auto middle = content.size() / 2 / 4096 * 4096;
    content.replace(middle - 20 * 4096, 40 * 4096, QByteArray(40 * 4096, '\x5a'));
    write(store(), content);

    auto& damaged = open();
    ASSERT_FALSE(container->setAside()) << "found at once: the test needs damage that a cheap look misses";
    bool isDamaged = false;
    for (const auto& id : ids)
        try {
            damaged.record(id);
        } catch (const StoreError& error) {
            isDamaged = isDamaged || error.cause() == StoreError::Cause::damaged;
            EXPECT_TRUE(error.message().contains(QStringLiteral("Restart Quillo"))) << error.what();
        }
    ASSERT_TRUE(isDamaged);
    EXPECT_EQ(open().count(), 0);
    ASSERT_TRUE(container->setAside());
    EXPECT_EQ(bytes(container->setAside()->keptAs).size(), content.size());
    EXPECT_TRUE(files(QStringLiteral("*.suspect")).isEmpty());
}

TEST_F(StoreFile, OfALaterVersionIsUsedWhenItSaysSoAndSetAsideOtherwise) {
    open().insert(newRecord(QStringLiteral("kept")));
    container->mainContext().save();
    container.reset();
    Database(store()).execute("ALTER TABLE ZTRANSCRIPTIONRECORD ADD COLUMN ZLATER VARCHAR DEFAULT 'x';"
                              "PRAGMA user_version = 99");
    auto& context = open();
    ASSERT_EQ(texts(context.fetch({})), QStringList{QStringLiteral("kept")});
    context.insert(newRecord(QStringLiteral("added")));
    context.save();
    EXPECT_EQ(DataContainer::openReadOnly()->mainContext().count(), 2);
    container.reset();
    EXPECT_EQ(cell("PRAGMA user_version"), QStringLiteral("99"));

    Database(store()).execute("UPDATE QuilloStore SET value = 98 WHERE name = 'compatible_since'");
    const auto before = bytes(store());
    EXPECT_THROW(DataContainer::openReadOnly(), StoreError);
    EXPECT_EQ(open().count(), 0);
    ASSERT_TRUE(container->setAside());
    EXPECT_TRUE(container->setAside()->keptAs.contains(QStringLiteral(".newer-")));
    EXPECT_EQ(container->setAside()->cause, StoreError::Cause::newer);
    EXPECT_EQ(bytes(container->setAside()->keptAs), before);
}

TEST_F(StoreFile, RebuildsItsIndexWhenAnyPartIsGone) {
    auto& context = open();
    context.insert(newRecord(QStringLiteral("findable")));
    context.save();
    RecordQuery search;
    search.search = QStringLiteral("findab");
    for (const auto* sql : {"DROP TABLE QuilloSearch", "DROP TABLE QuilloOrder", "DROP TABLE QuilloWord",
                            "DROP TRIGGER QuilloRecordUpdated",
                            "UPDATE QuilloStore SET value = 0 WHERE name = 'search_rules'", "DROP TABLE QuilloStore"}) {
        container.reset();
        Database(store()).execute(sql);
        EXPECT_THROW(DataContainer::openReadOnly(), StoreError) << sql;
        EXPECT_EQ(open().fetch(search).size(), 1) << sql;
    }
}

TEST_F(StoreFile, SaysWhyThereCanBeNone) {
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"a file in the folder's place", [] { write(DataContainer::storeDirectory(), "x"); }},
        {"a folder in the file's place", [] { QDir().mkpath(store()); }},
        {"no such device", [] { qputenv("XDG_DATA_HOME", "/proc/1/none"); }},
    };
    for (const auto& [what, prepare] : cases) {
        prepare();
        try {
            open();
            FAIL() << what;
        } catch (const StoreError& error) {
            EXPECT_TRUE(error.message().contains(QStringLiteral("Check the permissions"))) << what << error.what();
        }
        QFile::remove(DataContainer::storeDirectory());
        QDir(DataContainer::storeDirectory()).removeRecursively();
    }
    const auto memory = DataContainer::createInMemory();
    memory->mainContext().insert(newRecord(QStringLiteral("in memory")));
    memory->mainContext().save();
    EXPECT_EQ(memory->mainContext().count(), 1);
    EXPECT_TRUE(memory->path().isEmpty());
}

TEST_F(StoreFile, HelperSaysWhatItCannotOpen) {
    EXPECT_THROW(SQLiteHelper::open(QStringLiteral("/nowhere/x")), SQLiteHelper::Error);
    make(legacy(), "CREATE TABLE \"it's\" (x); CREATE VIEW v AS SELECT 1");
    const auto handle = SQLiteHelper::open(legacy());
    EXPECT_TRUE(SQLiteHelper::tableExists(handle, QStringLiteral("it's")));
    EXPECT_FALSE(SQLiteHelper::tableExists(handle, QStringLiteral("v")));
    EXPECT_FALSE(SQLiteHelper::tableExists(handle, QStringLiteral("x' OR '1'='1")));
}

} // namespace
} // namespace quillo::test
