#include "Data/Storage/Database.h"
#include "Data/Storage/SQLiteHelper.h"
#include "StoreFixture.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace quillo::test {
namespace {

class StoreFile : public StoreFixture {
protected:
    static QString store() { return DataContainer::storeURL(); }
    static QString legacy() { return DataContainer::legacyStoreURL(); }

    /// A database at `path` that `sql` makes.
    static void make(const QString& path, const QByteArray& sql) {
        writeFile(path, {});
        Database(path).execute(sql.constData());
    }
    static void makeFromFixture(const QString& path) {
        const auto sql = contentOf(QStringLiteral(QUILLO_TEST_FIXTURES "/legacy.sql"));
        ASSERT_FALSE(sql.isEmpty());
        make(path, sql);
    }
    static QString cell(const char* sql) {
        Database database(store());
        Statement statement(database, sql);
        return statement.step() ? statement.text(0) : u"no row"_qs;
    }
};

TEST_F(StoreFile, IsPrivateAndLaidOutAsBefore) {
    const mode_t mask = ::umask(0);
    auto& context = open();
    context.insert(newRecord(u"a"_qs));
    context.insert(newRecord(u"b"_qs));
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
              u"1AppSettings0,2Tag0,3TranscriptionRecord2"_qs);
    EXPECT_EQ(cell("SELECT typeof(ZID) || length(ZID) || Z_ENT || Z_OPT || typeof(ZCREATEDAT) FROM "
                   "ZTRANSCRIPTIONRECORD WHERE Z_PK = 2"),
              u"blob1631integer"_qs);
    // Numbers of deleted rows are never given again.
    for (const auto& record : context.fetch({}))
        context.remove(record);
    context.save();
    context.insert(newRecord(u"c"_qs));
    context.save();
    EXPECT_EQ(cell("SELECT Z_PK FROM ZTRANSCRIPTIONRECORD"), u"3"_qs);
}

TEST_F(StoreFile, OpensALegacyStoreWithAllItsRows) {
    makeFromFixture(legacy());
    const auto before = contentOf(legacy());
    auto& context = open();
    EXPECT_EQ(contentOf(legacy()), before);
    EXPECT_EQ(context.count(), 5);

    const auto record = context.record(QUuid(u"{00112233-4455-6677-8899-aabbccddeeff}"_qs));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->text, u"Grüße aus dem Süden"_qs);
    EXPECT_EQ(record->createdAt.toString(Qt::ISODateWithMs), u"2026-05-23T13:09:27.250Z"_qs);
    EXPECT_EQ(record->durationMs, 6200);
    EXPECT_TRUE(record->isFavorite);
    EXPECT_EQ(record->sourceApp, u"Firefox"_qs);
    EXPECT_FALSE(record->title || record->syncedAt || record->tagNamesData);
    ASSERT_TRUE(record->meetingSegments());
    EXPECT_EQ(record->meetingSegments()->at(0).text, u"one"_qs);
    EXPECT_EQ(context.fetch(searchFor(u"GRUSSE sude"_qs)), QList<RecordPointer>{record});
    // Every row has an identity of its own, and a state.
    QSet<QUuid> ids;
    for (const auto& any : context.fetch({})) {
        ids.insert(any->id);
        EXPECT_FALSE(any->status.isEmpty());
        EXPECT_TRUE(any->createdAt.isValid());
    }
    EXPECT_EQ(ids.size(), 5);
    ASSERT_TRUE(context.appSettings(u"user-1"_qs));
    EXPECT_EQ(context.appSettings(u"user-1"_qs)->insertionMode, u"type"_qs);
    EXPECT_EQ(context.appSettings(u"user-1"_qs)->selectedLanguages, QStringList{u"de"_qs});

    record->title = u"new"_qs;
    context.insert(newRecord(u"added"_qs));
    context.save();
    EXPECT_EQ(cell("SELECT ZFUTUREFIELD || Z_OPT FROM ZTRANSCRIPTIONRECORD WHERE Z_PK = 3"), u"kept as it is3"_qs);
    // Behind the highest number ever used, not behind the rows that are left.
    EXPECT_EQ(cell("SELECT Z_PK || '/' || Z_ENT FROM ZTRANSCRIPTIONRECORD WHERE ZTEXT = 'added'"), u"42/4"_qs);
    EXPECT_EQ(cell("SELECT group_concat(Z_ENT || Z_NAME || Z_MAX) FROM (SELECT * FROM Z_PRIMARYKEY ORDER BY Z_ENT)"),
              u"1AppSettings1,4TranscriptionRecord42,16001CHANGE9,16002Tag0"_qs);
    EXPECT_EQ(cell("SELECT Z_UUID FROM Z_METADATA"), u"0A1B2C3D-0000-4000-8000-000000000000"_qs);
    EXPECT_EQ(open().count(), 6);
}

TEST_F(StoreFile, OfAnyEarlierVersionRemembersWhatIsDeletedFromNowOn) {
    const QUuid id(u"{00112233-4455-6677-8899-aabbccddeeff}"_qs);
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
        EXPECT_EQ(cell("SELECT count(*) FROM QuilloDeleted"), u"0"_qs);
        context.save();
        EXPECT_EQ(cell("SELECT hex(id) FROM QuilloDeleted"), u"00112233445566778899AABBCCDDEEFF"_qs);
        EXPECT_EQ(cell("SELECT abs(deleted_at - 1000 * strftime('%s', 'now')) < 60000 FROM QuilloDeleted"), u"1"_qs);
        context.insert(std::make_shared<TranscriptionRecord>(fields));
        context.save();
        EXPECT_EQ(cell("SELECT count(*) FROM QuilloDeleted"), u"0"_qs);
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
    ASSERT_GT(QFileInfo(legacy() + u"-wal"_qs).size(), 0);
    EXPECT_EQ(texts(open().fetch(searchFor(u"log"_qs))), QStringList{u"from the log"_qs});
}

TEST_F(StoreFile, LeavesALegacyFileThatIsNotOurs) {
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"another program's database", [] { make(legacy(), "CREATE TABLE ZOTHER (x)"); }},
        {"no database", [] { writeFile(legacy(), "plain text"); }},
        {"empty", [] { writeFile(legacy(), {}); }},
    };
    for (const auto& [what, prepare] : cases) {
        prepare();
        const auto before = contentOf(legacy());
        EXPECT_EQ(open().count(), 0) << what;
        EXPECT_EQ(contentOf(legacy()), before) << what;
        container.reset();
        QDir(DataContainer::storeDirectory()).removeRecursively();
    }
}

TEST_F(StoreFile, ThatExistsSuppressesTheMigration) {
    open().insert(newRecord(u"own"_qs));
    container->mainContext().save();
    makeFromFixture(legacy());
    EXPECT_EQ(texts(open().fetch({})), QStringList{u"own"_qs});
}

TEST_F(StoreFile, StartsFreshWhenTheMigrationFails) {
    makeFromFixture(legacy());
    // A folder in the place of a companion cannot be copied.
    QDir().mkpath(legacy() + u"-wal"_qs);
    EXPECT_EQ(open().count(), 0);
}

TEST_F(StoreFile, ThatIsDamagedIsSetAsideWithItsBytes) {
    auto& context = open();
    for (int i = 0; i < 300; ++i)
        context.insert(newRecord(u"some text that fills pages "_qs.repeated(20), i));
    context.save();
    container.reset();
    const auto sound = contentOf(store());
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
        writeFile(store(), content);
        auto& fresh = open();
        ASSERT_TRUE(container->setAside()) << what;
        EXPECT_EQ(contentOf(container->setAside()->keptAs), content) << what;
        EXPECT_TRUE(container->setAside()->keptAs.contains(u"quillo.store.damaged-"_qs)) << what;
        EXPECT_EQ(fresh.count(), 0) << what;
        fresh.insert(newRecord(u"new"_qs));
        fresh.save();
        EXPECT_EQ(open().count(), 1) << what;
        EXPECT_FALSE(container->setAside()) << what;
        container.reset();
    }
    EXPECT_EQ(files(u"quillo.store.damaged-*"_qs).size(), 5);
}

TEST_F(StoreFile, DamageMetInUseIsFoundAtTheNextStart) {
    auto& context = open();
    QList<QUuid> ids;
    for (int i = 0; i < 2000; ++i) {
        const auto record = newRecord(u"words that fill the pages in the middle "_qs.repeated(20), i);
        ids.append(record->id);
        context.insert(record);
    }
    context.save();
    container.reset();
    auto content = contentOf(store());
    const auto middle = content.size() / 2 / 4096 * 4096;
    content.replace(middle - 20 * 4096, 40 * 4096, QByteArray(40 * 4096, '\x5a'));
    writeFile(store(), content);

    auto& damaged = open();
    ASSERT_FALSE(container->setAside()) << "found at once: the test needs damage that a cheap look misses";
    bool isDamaged = false;
    for (const auto& id : ids)
        try {
            damaged.record(id);
        } catch (const StoreError& error) {
            isDamaged = isDamaged || error.cause() == StoreError::Cause::damaged;
            EXPECT_TRUE(error.message().contains(u"Restart Quillo"_qs)) << error.what();
        }
    ASSERT_TRUE(isDamaged);
    EXPECT_EQ(open().count(), 0);
    ASSERT_TRUE(container->setAside());
    EXPECT_EQ(contentOf(container->setAside()->keptAs).size(), content.size());
    EXPECT_TRUE(files(u"*.suspect"_qs).isEmpty());
}

TEST_F(StoreFile, OfALaterVersionIsUsedWhenItSaysSoAndSetAsideOtherwise) {
    open().insert(newRecord(u"kept"_qs));
    container->mainContext().save();
    container.reset();
    Database(store()).execute("ALTER TABLE ZTRANSCRIPTIONRECORD ADD COLUMN ZLATER VARCHAR DEFAULT 'x';"
                              "PRAGMA user_version = 99");
    auto& context = open();
    ASSERT_EQ(texts(context.fetch({})), QStringList{u"kept"_qs});
    context.insert(newRecord(u"added"_qs));
    context.save();
    EXPECT_EQ(DataContainer::openReadOnly()->mainContext().count(), 2);
    container.reset();
    EXPECT_EQ(cell("PRAGMA user_version"), u"99"_qs);

    Database(store()).execute("UPDATE QuilloStore SET value = 98 WHERE name = 'compatible_since'");
    const auto before = contentOf(store());
    EXPECT_THROW(DataContainer::openReadOnly(), StoreError);
    EXPECT_EQ(open().count(), 0);
    ASSERT_TRUE(container->setAside());
    EXPECT_TRUE(container->setAside()->keptAs.contains(u".newer-"_qs));
    EXPECT_EQ(container->setAside()->cause, StoreError::Cause::newer);
    EXPECT_EQ(contentOf(container->setAside()->keptAs), before);
}

TEST_F(StoreFile, RebuildsItsIndexWhenAnyPartIsGone) {
    auto& context = open();
    context.insert(newRecord(u"findable"_qs));
    context.save();
    for (const auto* sql : {"DROP TABLE QuilloSearch", "DROP TABLE QuilloOrder", "DROP TABLE QuilloWord",
                            "DROP TRIGGER QuilloRecordUpdated",
                            "UPDATE QuilloStore SET value = 0 WHERE name = 'search_rules'", "DROP TABLE QuilloStore"}) {
        container.reset();
        Database(store()).execute(sql);
        EXPECT_THROW(DataContainer::openReadOnly(), StoreError) << sql;
        EXPECT_EQ(open().fetch(searchFor(u"findab"_qs)).size(), 1) << sql;
    }
}

TEST_F(StoreFile, SaysWhyThereCanBeNone) {
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"a file in the folder's place", [] { writeFile(DataContainer::storeDirectory(), "x"); }},
        {"a folder in the file's place", [] { QDir().mkpath(store()); }},
        {"no such device", [] { qputenv("XDG_DATA_HOME", "/proc/1/none"); }},
    };
    for (const auto& [what, prepare] : cases) {
        prepare();
        EXPECT_THAT([&] { open(); }, testing::ThrowsMessage<StoreError>(testing::HasSubstr("Check the permissions")))
            << what;
        QFile::remove(DataContainer::storeDirectory());
        QDir(DataContainer::storeDirectory()).removeRecursively();
    }
    const auto memory = DataContainer::createInMemory();
    memory->mainContext().insert(newRecord(u"in memory"_qs));
    memory->mainContext().save();
    EXPECT_EQ(memory->mainContext().count(), 1);
    EXPECT_TRUE(memory->path().isEmpty());
}

TEST_F(StoreFile, HelperSaysWhatItCannotOpen) {
    EXPECT_THROW(SQLiteHelper::open(u"/nowhere/x"_qs), SQLiteHelper::Error);
    make(legacy(), "CREATE TABLE \"it's\" (x); CREATE VIEW v AS SELECT 1");
    const auto handle = SQLiteHelper::open(legacy());
    EXPECT_TRUE(SQLiteHelper::tableExists(handle, u"it's"_qs));
    EXPECT_FALSE(SQLiteHelper::tableExists(handle, u"v"_qs));
    EXPECT_FALSE(SQLiteHelper::tableExists(handle, u"x' OR '1'='1"_qs));
}

} // namespace
} // namespace quillo::test
