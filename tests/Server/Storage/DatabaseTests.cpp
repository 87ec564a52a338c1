#include "Storage/Database.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <sys/stat.h>

#include <array>

using namespace quillo::server;

namespace {

constexpr std::array<std::string_view, 2> migrations = {"CREATE TABLE notes(id INTEGER PRIMARY KEY, text TEXT)",
                                                        "ALTER TABLE notes ADD COLUMN author TEXT DEFAULT 'nobody'"};

class ServerDatabase : public testing::Test {
protected:
    QTemporaryDir folder;
    std::string file = folder.filePath(u"a.sqlite"_qs).toStdString();
};

TEST_F(ServerDatabase, BringsAnOlderFileUpToDateAndKeepsItsRows) {
    {
        const Database old(file, std::span(migrations).first(1));
        old.execute("INSERT INTO notes(text) VALUES('kept')");
    }
    const Database current(file, migrations);
    Statement query(current, "SELECT text, author FROM notes");
    ASSERT_TRUE(query.step());
    EXPECT_EQ(query.text(0), "kept");
    EXPECT_EQ(query.text(1), "nobody");
}

TEST_F(ServerDatabase, RefusesAFileOfANewerProgram) {
    { const Database current(file, migrations); }
    EXPECT_THROW(Database(file, std::span(migrations).first(1)), DatabaseError);
}

TEST_F(ServerDatabase, AFailedMigrationLeavesTheOldVersion) {
    constexpr std::array<std::string_view, 2> broken = {migrations[0],
                                                        "CREATE TABLE more(id); INSERT INTO missing VALUES(1)"};
    EXPECT_THROW(Database(file, broken), DatabaseError);
    const Database repaired(file, migrations);
    Statement tables(repaired, "SELECT count(*) FROM sqlite_master WHERE name = 'more'");
    ASSERT_TRUE(tables.step());
    EXPECT_EQ(tables.integer(0), 0);
}

TEST_F(ServerDatabase, NobodyElseMayReadIt) {
    const Database database(file, migrations);
    for (const char* suffix : {"", "-wal", "-shm"}) {
        struct stat status {};
        ASSERT_EQ(::stat((file + suffix).c_str(), &status), 0) << suffix;
        EXPECT_EQ(status.st_mode & 0077, 0U) << suffix;
    }
}

TEST_F(ServerDatabase, ATransactionThatIsNotCommittedIsUndone) {
    const Database database(file, migrations);
    {
        const Transaction transaction(database);
        database.execute("INSERT INTO notes(text) VALUES('lost')");
    }
    Statement query(database, "SELECT count(*) FROM notes");
    ASSERT_TRUE(query.step());
    EXPECT_EQ(query.integer(0), 0);
}

} // namespace
