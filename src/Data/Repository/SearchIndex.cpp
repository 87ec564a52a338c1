#include "Data/Repository/SearchIndex.h"

#include "Data/Search/SearchFunctions.h"
#include "Data/Search/SearchWords.h"

namespace quillo::searchIndex {

namespace {

// QuilloWord lists the longer words that records have or once had. Without a copy of the texts and without their words'
// positions: no query needs either. Non-ASCII characters are all parts of words to this tokenizer, the words come
// folded and separated.
constexpr auto tables = R"(
CREATE TABLE QuilloOrder (position INTEGER PRIMARY KEY, record INTEGER NOT NULL UNIQUE);
CREATE VIRTUAL TABLE QuilloSearch USING fts5(
  words, content = '', detail = none, columnsize = 0, prefix = '1 2 3 4 5', tokenize = 'ascii');
CREATE TABLE QuilloWord (word TEXT PRIMARY KEY) WITHOUT ROWID;
)";

std::string wordsOf(const std::string& row, const char* function = "quillo_words") {
    return std::string(function) + "(" + row + ".ZTEXT, " + row + ".ZTITLE, " + row + ".ZSOURCEAPP, " + row +
           ".ZTAGNAMESDATA, " + row + ".ZISFAVORITE)";
}

/// Records of the same millisecond get consecutive positions; if there are many, they use those of the next
/// millisecond.
constexpr auto enter = R"(
  INSERT INTO QuilloOrder (position, record)
  SELECT CASE WHEN last IS NULL THEN first
              WHEN last < first + 15 THEN last + 1
              ELSE (SELECT min(o.position) + 1 FROM QuilloOrder o WHERE o.position >= first + 15
                       AND NOT EXISTS (SELECT 1 FROM QuilloOrder n WHERE n.position = o.position + 1)) END, new.Z_PK
    FROM (SELECT quillo_position(new.ZCREATEDAT) AS first,
                 (SELECT max(position) FROM QuilloOrder
                   WHERE position BETWEEN quillo_position(new.ZCREATEDAT) AND quillo_position(new.ZCREATEDAT) + 15)
                 AS last);
)";

std::string enterWords() {
    return "INSERT INTO QuilloSearch (rowid, words) SELECT position, " + wordsOf("new") +
           " FROM QuilloOrder WHERE record = new.Z_PK;\n"
           "INSERT OR IGNORE INTO QuilloWord (word) SELECT value FROM json_each(" +
           wordsOf("new", "quillo_long_words") + ");\n";
}

std::string leave() {
    // Such an index removes a row only when it is given exactly the words that were inserted.
    return "INSERT INTO QuilloSearch (QuilloSearch, rowid, words) SELECT 'delete', position, " + wordsOf("old") +
           " FROM QuilloOrder WHERE record = old.Z_PK;\n"
           "DELETE FROM QuilloOrder WHERE record = old.Z_PK;\n";
}

std::string triggers() {
    // Use one trigger for all kinds of updates: several would run in an undefined order.
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
                                        "'QuilloSearch', 'QuilloWord', 'QuilloRecordInserted', 'QuilloRecordDeleted', "
                                        "'QuilloRecordUpdated', 'QuilloStore')");
    return parts == 7 &&
           database.integer("SELECT value FROM QuilloStore WHERE name = 'search_rules'") == searchWords::rulesVersion;
}

void drop(Database& database) {
    database.execute("DROP TRIGGER IF EXISTS QuilloRecordInserted; DROP TRIGGER IF EXISTS QuilloRecordDeleted;"
                     "DROP TRIGGER IF EXISTS QuilloRecordUpdated; DROP TABLE IF EXISTS QuilloSearch;"
                     "DROP TABLE IF EXISTS QuilloOrder; DROP TABLE IF EXISTS QuilloWord;");
}

void build(Database& database) {
    drop(database);
    database.execute(tables);
    // The index is fastest with increasing positions.
    {
        Statement rows(database, "SELECT ZCREATEDAT, Z_PK FROM ZTRANSCRIPTIONRECORD ORDER BY ZCREATEDAT, Z_PK");
        Statement insert(database, "INSERT INTO QuilloOrder (position, record) VALUES (?1, ?2)");
        std::optional<int64_t> last;
        while (rows.step()) {
            const auto own = positionOf(rows.real(0));
            last = last ? std::max(own, *last + 1) : own;
            insert.bind(1, *last).bind(2, rows.integer(1));
            insert.step();
            insert.reset();
        }
    }
    database.execute("INSERT INTO QuilloSearch (rowid, words) SELECT position, " + wordsOf("r") +
                     " FROM QuilloOrder CROSS JOIN ZTRANSCRIPTIONRECORD r ON r.Z_PK = record ORDER BY position");
    database.execute("INSERT OR IGNORE INTO QuilloWord (word) SELECT value FROM ZTRANSCRIPTIONRECORD r, json_each(" +
                     wordsOf("r", "quillo_long_words") + ")");
    database.execute(triggers());
    database.execute("INSERT OR REPLACE INTO QuilloStore (name, value) VALUES ('search_rules', " +
                     std::to_string(searchWords::rulesVersion) + ")");
}

} // namespace quillo::searchIndex
