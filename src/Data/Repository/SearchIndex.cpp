#include "Data/Repository/SearchIndex.h"

#include "Data/Repository/SearchWords.h"

namespace quillo::searchIndex {

namespace {

// Without a copy of the texts and without their words' positions: no query needs either. Non-ASCII characters are all
// parts of words to this tokenizer, the words come folded and separated.
constexpr auto tables = R"(
CREATE TABLE QuilloOrder (position INTEGER PRIMARY KEY, record INTEGER NOT NULL UNIQUE);
CREATE VIRTUAL TABLE QuilloSearch USING fts5(
  words, content = '', detail = none, columnsize = 0, prefix = '1 2 3 4', tokenize = 'ascii');
)";

std::string wordsOf(const std::string& row) {
    return "quillo_words(" + row + ".ZTEXT, " + row + ".ZTITLE, " + row + ".ZSOURCEAPP, " + row + ".ZTAGNAMESDATA, " +
           row + ".ZISFAVORITE)";
}

/// Records of one millisecond follow each other. When its places are used up, the rest goes before everything.
constexpr auto enter = R"(
  INSERT INTO QuilloOrder (position, record)
  SELECT CASE WHEN last IS NULL THEN first
              WHEN last < first + 1023 THEN last + 1
              ELSE (SELECT min(position) - 1 FROM QuilloOrder) END, new.Z_PK
    FROM (SELECT quillo_position(new.ZCREATEDAT) AS first,
                 (SELECT max(position) FROM QuilloOrder
                   WHERE position BETWEEN quillo_position(new.ZCREATEDAT) AND quillo_position(new.ZCREATEDAT) + 1023)
                 AS last);
)";

std::string enterWords() {
    return "INSERT INTO QuilloSearch (rowid, words) SELECT position, " + wordsOf("new") +
           " FROM QuilloOrder WHERE record = new.Z_PK;\n";
}

std::string leave() {
    // Such an index forgets a row only when told the very words that it was given.
    return "INSERT INTO QuilloSearch (QuilloSearch, rowid, words) SELECT 'delete', position, " + wordsOf("old") +
           " FROM QuilloOrder WHERE record = old.Z_PK;\n"
           "DELETE FROM QuilloOrder WHERE record = old.Z_PK;\n";
}

std::string triggers() {
    // One trigger for every kind of update: several would run in no certain order.
    return "CREATE TRIGGER QuilloRecordInserted AFTER INSERT ON ZTRANSCRIPTIONRECORD BEGIN " + std::string(enter) +
           enterWords() +
           "END;\n"
           "CREATE TRIGGER QuilloRecordDeleted AFTER DELETE ON ZTRANSCRIPTIONRECORD BEGIN " +
           leave() +
           "END;\n"
           "CREATE TRIGGER QuilloRecordUpdated AFTER UPDATE OF Z_PK, ZCREATEDAT, ZTEXT, ZTITLE, ZSOURCEAPP, "
           "ZTAGNAMESDATA, ZISFAVORITE ON ZTRANSCRIPTIONRECORD BEGIN " +
           leave() + enter + enterWords() + "END;\n";
}

} // namespace

bool isComplete(const Database& database) {
    const auto parts = database.integer("SELECT count(*) FROM sqlite_master WHERE name IN ('QuilloOrder', "
                                        "'QuilloSearch', 'QuilloRecordInserted', 'QuilloRecordDeleted', "
                                        "'QuilloRecordUpdated', 'QuilloStore')");
    return parts == 6 &&
           database.integer("SELECT value FROM QuilloStore WHERE name = 'search_rules'") == searchWords::rulesVersion;
}

void drop(Database& database) {
    database.execute("DROP TRIGGER IF EXISTS QuilloRecordInserted; DROP TRIGGER IF EXISTS QuilloRecordDeleted;"
                     "DROP TRIGGER IF EXISTS QuilloRecordUpdated; DROP TABLE IF EXISTS QuilloSearch;"
                     "DROP TABLE IF EXISTS QuilloOrder;");
}

void build(Database& database) {
    drop(database);
    database.execute(tables);
    // Rising positions are what the index takes fastest. One after the other within a millisecond, as the triggers do.
    database.execute("INSERT INTO QuilloOrder (position, record) SELECT base + row_number() OVER "
                     "(PARTITION BY base ORDER BY Z_PK) - 1, Z_PK FROM (SELECT quillo_position(ZCREATEDAT) AS base, "
                     "Z_PK FROM ZTRANSCRIPTIONRECORD) ORDER BY 1");
    database.execute("INSERT INTO QuilloSearch (rowid, words) SELECT position, " + wordsOf("r") +
                     " FROM QuilloOrder CROSS JOIN ZTRANSCRIPTIONRECORD r ON r.Z_PK = record ORDER BY position");
    database.execute(triggers());
    database.execute("INSERT OR REPLACE INTO QuilloStore (name, value) VALUES ('search_rules', " +
                     std::to_string(searchWords::rulesVersion) + ")");
}

} // namespace quillo::searchIndex
