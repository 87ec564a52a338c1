#include "Data/Repository/StoredValue.h"

#include "Data/Models/TranscriptionRecord.h"

#include <algorithm>
#include <cmath>

namespace quillo::storedValue {

namespace {

constexpr qint64 referenceMs = 978'307'200'000;       // 2001-01-01 00:00 UTC
constexpr double earliestSeconds = -63'113'904'000.0; // year 1
constexpr double latestSeconds = 252'423'993'599.0;   // year 9999

} // namespace

double toSeconds(const QDateTime& date) {
    return date.isValid() ? static_cast<double>(date.toMSecsSinceEpoch() - referenceMs) / 1000.0 : 0;
}

QDateTime fromSeconds(double seconds) {
    const double kept = std::isfinite(seconds) ? std::clamp(seconds, earliestSeconds, latestSeconds) : 0;
    return QDateTime::fromMSecsSinceEpoch(referenceMs + std::llround(kept * 1000), Qt::UTC);
}

void load(const Statement& row, int column, QUuid& value) { value = QUuid::fromRfc4122(row.blob(column)); }
void load(const Statement& row, int column, QString& value) { value = row.text(column); }
void load(const Statement& row, int column, QDateTime& value) { value = fromSeconds(row.real(column)); }
void load(const Statement& row, int column, int64_t& value) { value = row.integer(column); }
void load(const Statement& row, int column, bool& value) { value = row.integer(column) != 0; }
void load(const Statement& row, int column, uint16_t& value) { value = static_cast<uint16_t>(row.integer(column)); }
void load(const Statement& row, int column, uint64_t& value) { value = static_cast<uint64_t>(row.integer(column)); }
void load(const Statement& row, int column, QStringList& value) { value = decodeTagNames(row.blob(column)); }
void load(const Statement& row, int column, QByteArray& value) { value = row.blob(column); }
void load(const Statement& row, int column, double& value) { value = row.real(column); }

void bind(Statement& statement, int index, const QUuid& value) { statement.bindBlob(index, value.toRfc4122()); }
void bind(Statement& statement, int index, const QString& value) { statement.bind(index, value); }
void bind(Statement& statement, int index, const QDateTime& value) { statement.bind(index, toSeconds(value)); }
void bind(Statement& statement, int index, int64_t value) { statement.bind(index, value); }
void bind(Statement& statement, int index, bool value) { statement.bind(index, int64_t{value}); }
void bind(Statement& statement, int index, uint16_t value) { statement.bind(index, int64_t{value}); }
void bind(Statement& statement, int index, uint64_t value) { statement.bind(index, static_cast<int64_t>(value)); }
void bind(Statement& statement, int index, const QStringList& value) {
    statement.bindBlob(index, encodeTagNames(value));
}
void bind(Statement& statement, int index, const QByteArray& value) { statement.bindBlob(index, value); }
void bind(Statement& statement, int index, double value) { statement.bind(index, value); }

} // namespace quillo::storedValue
