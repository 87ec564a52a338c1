#include "Data/Repository/RecordSelect.h"

#include "Data/Models/RecordStatus.h"
#include "Data/Repository/StoredValue.h"
#include "Data/Search/SearchFunctions.h"
#include "Data/Search/SearchWords.h"

namespace quillo {

namespace {

/// Looking up more words would cost more than the index's own prefix search.
constexpr qsizetype mostCompletions = 256;

std::optional<QStringList> wordsBeginningWith(const QString& prefix, Database& database) {
    auto& statement = database.prepared("SELECT word FROM QuilloWord WHERE word >= ?1 AND word < ?2 LIMIT " +
                                        std::to_string(mostCompletions + 1));
    // Sorts after every word with this beginning.
    statement.bind(1, prefix).bind(2, QString(prefix + QString::fromUcs4(U"\U0010ffff", 1)));
    QStringList words;
    while (statement.step())
        words.append(statement.text(0));
    statement.reset();
    return words.size() > mostCompletions ? std::nullopt : std::optional(words);
}

QString fullTextQuery(const RecordQuery& query, Database& database) {
    QStringList marks;
    for (const auto& tag : query.tagNames)
        marks.append(searchWords::tagMark(tag));
    if (query.favoritesOnly)
        marks.append(searchWords::favoriteMark());
    return searchWords::matching(query.search, marks,
                                 [&database](const QString& prefix) { return wordsBeginningWith(prefix, database); });
}

} // namespace

RecordSelect::RecordSelect(const RecordQuery& query, Database& database) : m_query(query) {
    const auto words = fullTextQuery(query, database);
    if (!words.isEmpty()) {
        // Apply the bounds to the full-text table, so that it does not read rows outside them.
        m_position = "s.rowid";
        m_match = parameter([words](Statement& statement, int index) { statement.bind(index, words); });
    } else {
        m_canMatch = query.search.trimmed().isEmpty();
    }

    addEquals("ZPENDINGAUDIOID", query.pendingAudioId);
    addEquals("ZAUDIORETAINEDID", query.audioRetainedId);
    addEquals("ZCLIENTRECORDINGID", query.clientRecordingId);
    addEquals("ZSESSIONID", query.sessionId);
    m_isByIndex = !m_conditions.empty();
    if (!query.statuses.isEmpty()) {
        std::string list;
        for (const auto& status : query.statuses)
            list += (list.empty() ? "" : ", ") +
                    parameter([status](Statement& statement, int index) { statement.bind(index, status); });
        m_conditions.push_back("r.ZSTATUS IN (" + list + ")");
        // Nearly all records are completed.
        m_isByIndex = m_isByIndex || !query.statuses.contains(RecordStatus::completed);
    }
    if (query.unsyncedOnly) {
        m_conditions.emplace_back("r.ZSYNCEDAT IS NULL");
        m_isByIndex = true;
    }
    addEquals("ZUSERID", query.userId);
    addEquals("ZSOURCEDEVICE", query.sourceDevice);
    if (query.meetingsOnly)
        m_conditions.emplace_back("r.ZISMEETINGMODE <> 0");
    m_needsRecord = !m_conditions.empty();

    const auto addPosition = [this](const char* comparison, const QDateTime& date) {
        const auto position = positionOf(storedValue::toSeconds(date));
        m_conditions.push_back(
            m_position + " " + comparison + " " +
            parameter([position](Statement& statement, int index) { statement.bind(index, position); }));
    };
    if (query.createdBefore)
        addPosition("<", *query.createdBefore);
    if (query.createdAfter)
        addPosition(">=", *query.createdAfter);
    if (query.after)
        m_conditions.push_back(
            m_position +
            " < (SELECT position FROM QuilloOrder JOIN ZTRANSCRIPTIONRECORD ON Z_PK = record WHERE ZID = " +
            parameter(
                [id = *query.after](Statement& statement, int index) { storedValue::bind(statement, index, id); }) +
            ")");
}

std::string RecordSelect::parameter(const std::function<void(Statement&, int)>& value) {
    m_values.push_back(value);
    return "?" + std::to_string(m_values.size());
}

void RecordSelect::addEquals(const char* column, const std::optional<QString>& value) {
    if (value)
        m_conditions.push_back(
            std::string("r.") + column + " = " +
            parameter([text = *value](Statement& statement, int index) { statement.bind(index, text); }));
}

std::string RecordSelect::positions() const {
    // CROSS JOIN fixes the order of the loops; the optimiser has no statistics to choose it by.
    std::string from;
    std::string conditions;
    if (!m_match.empty()) {
        from = "QuilloSearch s CROSS JOIN QuilloOrder o ON o.position = s.rowid";
        conditions = " WHERE s.QuilloSearch MATCH " + m_match;
        if (m_needsRecord)
            from += " CROSS JOIN ZTRANSCRIPTIONRECORD r ON r.Z_PK = o.record";
    } else if (m_isByIndex) {
        from = "ZTRANSCRIPTIONRECORD r CROSS JOIN QuilloOrder o ON o.record = r.Z_PK";
    } else {
        from = "QuilloOrder o";
        if (m_needsRecord)
            from += " CROSS JOIN ZTRANSCRIPTIONRECORD r ON r.Z_PK = o.record";
    }
    for (const auto& condition : m_conditions)
        conditions += (conditions.empty() ? " WHERE " : " AND ") + condition;
    return "SELECT " + m_position + " AS position, o.record AS record FROM " + from + conditions;
}

std::string RecordSelect::rows(const std::string& columns) const {
    // Select the positions first, so that only returned rows are read.
    return "SELECT " + columns + " FROM (" + positions() + " ORDER BY " + m_position + " DESC LIMIT " +
           std::to_string(m_query.limit) + " OFFSET " + std::to_string(m_query.offset) +
           ") p CROSS JOIN ZTRANSCRIPTIONRECORD r ON r.Z_PK = p.record ORDER BY p.position DESC";
}

std::string RecordSelect::count() const { return "SELECT count(*) FROM (" + positions() + ")"; }

void RecordSelect::bind(Statement& statement) const {
    for (size_t i = 0; i < m_values.size(); ++i)
        m_values[i](statement, static_cast<int>(i) + 1);
}

} // namespace quillo
