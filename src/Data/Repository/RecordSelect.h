#pragma once

#include "Data/Repository/RecordQuery.h"
#include "Data/Storage/Database.h"

#include <functional>
#include <vector>

namespace quillo {

/// A record query in SQL.
class RecordSelect {
public:
    RecordSelect(const RecordQuery& query, Database& database);

    /// False when the query cannot find anything, because its search contains no word.
    [[nodiscard]] bool canMatch() const { return m_canMatch; }
    /// Selects `columns` of the records `r`, newest first.
    [[nodiscard]] std::string rows(const std::string& columns) const;
    [[nodiscard]] std::string count() const;
    void bind(Statement& statement) const;

private:
    std::string parameter(const std::function<void(Statement&, int)>& value);
    [[nodiscard]] std::string positions() const;
    void addEquals(const char* column, const std::optional<QString>& value);

    RecordQuery m_query;
    bool m_canMatch = true;
    bool m_isByIndex = false; ///< few records have the requested value, and an index of the records lists them
    bool m_needsRecord = false;
    std::string m_position = "o.position";
    std::string m_match; ///< parameter of the full-text query
    std::vector<std::string> m_conditions;
    std::vector<std::function<void(Statement&, int)>> m_values;
};

} // namespace quillo
