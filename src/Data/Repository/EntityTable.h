#pragma once

#include "Data/Models/AppSettings.h"
#include "Data/Models/Tag.h"
#include "Data/Models/TranscriptionRecord.h"
#include "Data/Repository/StoredValue.h"

#include <QList>

#include <span>
#include <string>
#include <variant>

namespace quillo {

/// A stored field and its column.
template <typename Fields>
struct Column {
    using Member = std::variant<QUuid Fields::*, QString Fields::*, QDateTime Fields::*, int64_t Fields::*,
                                bool Fields::*, uint16_t Fields::*, uint64_t Fields::*, QStringList Fields::*,
                                std::optional<QString> Fields::*, std::optional<QDateTime> Fields::*,
                                std::optional<QByteArray> Fields::*, std::optional<double> Fields::*>;
    const char* name; ///< "Z" and the field's name in capitals
    const char* type; ///< as declared
    Member member;
};

/// The table of one model class. The first column identifies the object.
template <typename Fields>
struct EntityTable {
    const char* entity;
    const char* table;
    std::span<const Column<Fields>> columns;

    /// The columns in order, each preceded by `prefix`.
    [[nodiscard]] std::string columnList(const char* prefix = "") const {
        std::string list;
        for (const auto& column : columns)
            list += (list.empty() ? "" : ", ") + std::string(prefix) + column.name;
        return list;
    }

    /// From a row that begins with `columnList`.
    [[nodiscard]] Fields load(const Statement& row) const {
        Fields fields;
        int index = 0;
        for (const auto& column : columns) {
            std::visit([&](auto member) { storedValue::load(row, index, fields.*member); }, column.member);
            ++index;
        }
        return fields;
    }

    void insert(Database& database, int64_t key, int64_t entityNumber, const Fields& fields) const {
        std::string values;
        for (size_t i = 0; i < columns.size(); ++i)
            values += ",?" + std::to_string(i + 3);
        auto& statement = database.prepared(std::string("INSERT INTO ") + table + "(Z_PK, Z_ENT, Z_OPT, " +
                                            columnList() + ") VALUES (?1, ?2, 1" + values + ")");
        statement.bind(1, key).bind(2, entityNumber);
        for (size_t i = 0; i < columns.size(); ++i)
            bindField(statement, static_cast<int>(i) + 3, columns[i], fields);
        statement.step();
        statement.reset();
    }

    /// Updates the columns in which `now` differs from `before`.
    void update(Database& database, const Fields& before, const Fields& now) const {
        std::string assignments;
        QList<const Column<Fields>*> changed;
        for (const auto& column : columns.subspan(1)) {
            if (std::visit([&](auto member) { return before.*member == now.*member; }, column.member))
                continue;
            changed.append(&column);
            assignments += std::string(column.name) + " = ?" + std::to_string(changed.size() + 1) + ", ";
        }
        if (changed.isEmpty())
            return;
        auto& statement = database.prepared(std::string("UPDATE ") + table + " SET " + assignments +
                                            "Z_OPT = coalesce(Z_OPT, 0) + 1 WHERE " + columns[0].name + " = ?1");
        bindField(statement, 1, columns[0], before);
        for (qsizetype i = 0; i < changed.size(); ++i)
            bindField(statement, static_cast<int>(i) + 2, *changed.at(i), now);
        statement.step();
        statement.reset();
    }

    void remove(Database& database, const Fields& fields) const {
        auto& statement =
            database.prepared(std::string("DELETE FROM ") + table + " WHERE " + columns[0].name + " = ?1");
        bindField(statement, 1, columns[0], fields);
        statement.step();
        statement.reset();
    }

private:
    static void bindField(Statement& statement, int index, const Column<Fields>& column, const Fields& fields) {
        std::visit([&](auto member) { storedValue::bind(statement, index, fields.*member); }, column.member);
    }
};

const EntityTable<RecordFields>& recordTable();
const EntityTable<TagFields>& tagTable();
const EntityTable<AppSettingsFields>& appSettingsTable();

} // namespace quillo
