#include "Data/Storage/SQLiteHelper.h"

#include <QFile>

#include <sqlite3.h>

namespace quillo {

void SQLiteHelper::Closer::operator()(sqlite3* database) const { sqlite3_close_v2(database); }

SQLiteHelper::Handle SQLiteHelper::open(const QString& path) {
    sqlite3* database = nullptr;
    const int result = sqlite3_open_v2(QFile::encodeName(path).constData(), &database,
                                       SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    Handle handle(database);
    if (result != SQLITE_OK)
        throw Error(QStringLiteral("cannot open %1: %2").arg(path, QString::fromUtf8(sqlite3_errstr(result))));
    return handle;
}

bool SQLiteHelper::tableExists(const Handle& database, const QString& name) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database.get(), "SELECT 1 FROM sqlite_master WHERE type='table' AND name=? LIMIT 1", -1,
                           &statement, nullptr) != SQLITE_OK)
        return false;
    const auto bytes = name.toUtf8();
    sqlite3_bind_text(statement, 1, bytes.constData(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
    const bool exists = sqlite3_step(statement) == SQLITE_ROW;
    sqlite3_finalize(statement);
    return exists;
}

} // namespace quillo
