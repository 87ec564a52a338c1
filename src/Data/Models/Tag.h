#pragma once

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <memory>

namespace quillo {

/// The stored fields of a tag, in the order of the columns.
struct TagFields {
    QUuid id = QUuid::createUuid();
    QString name;           ///< trimmed; unique in the catalogue, ignoring case
    bool isAutoTag = false; ///< created by the program (the name of an application), not by the user
    QDateTime createdAt;    ///< UTC, milliseconds
    bool operator==(const TagFields&) const = default;
};

/// A label of the catalogue. Records refer to it by name. Main thread.
class Tag final : public TagFields {
public:
    Tag() = default;
    explicit Tag(const TagFields& fields) : TagFields(fields) {}
    Tag(const Tag&) = delete;
    Tag& operator=(const Tag&) = delete;
    /// Compares identity, not content.
    bool operator==(const Tag& other) const { return id == other.id; }
};

using TagPointer = std::shared_ptr<Tag>;

} // namespace quillo
