#pragma once

#include "Data/Storage/Database.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <cstdint>
#include <optional>

namespace quillo::storedValue {

/// Dates are kept as seconds since 2001-01-01 UTC.
double toSeconds(const QDateTime& date);
/// Dates outside the years 1 to 9999 are moved to that range.
QDateTime fromSeconds(double seconds);

// How each type is stored in a column. Values of another type are converted if possible and read as empty otherwise;
// reading never fails.
void load(const Statement& row, int column, QUuid& value);
void load(const Statement& row, int column, QString& value);
void load(const Statement& row, int column, QDateTime& value);
void load(const Statement& row, int column, int64_t& value);
void load(const Statement& row, int column, bool& value);
void load(const Statement& row, int column, uint16_t& value);
void load(const Statement& row, int column, uint64_t& value);
void load(const Statement& row, int column, QStringList& value);
void load(const Statement& row, int column, QByteArray& value);
void load(const Statement& row, int column, double& value);
template <typename T>
void load(const Statement& row, int column, std::optional<T>& value) {
    value.reset();
    if (!row.isNull(column))
        load(row, column, value.emplace());
}

void bind(Statement& statement, int index, const QUuid& value);
void bind(Statement& statement, int index, const QString& value);
void bind(Statement& statement, int index, const QDateTime& value);
void bind(Statement& statement, int index, int64_t value);
void bind(Statement& statement, int index, bool value);
void bind(Statement& statement, int index, uint16_t value);
void bind(Statement& statement, int index, uint64_t value);
void bind(Statement& statement, int index, const QStringList& value);
void bind(Statement& statement, int index, const QByteArray& value);
void bind(Statement& statement, int index, double value);
template <typename T>
void bind(Statement& statement, int index, const std::optional<T>& value) {
    if (value)
        bind(statement, index, *value);
    else
        statement.bindNull(index);
}

} // namespace quillo::storedValue
