#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

namespace quillo {

/// An earlier or alternative text of a record, kept when it was replaced.
struct PersistedTextVersion {
    QString text;
    QString label;       ///< its origin, for example the name of a preset; may be empty
    QDateTime createdAt; ///< UTC
    bool operator==(const PersistedTextVersion&) const = default;
};

/// A JSON array of objects with the fields' names as keys, dates as ISO 8601; nothing for any other `json`.
QByteArray encodeTextVersions(const QList<PersistedTextVersion>& versions);
std::optional<QList<PersistedTextVersion>> decodeTextVersions(const QByteArray& json);

} // namespace quillo
