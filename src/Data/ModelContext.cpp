#include "Data/ModelContext.h"

#include "Core/DictatedText.h"
#include "Data/Repository/EntityTable.h"
#include "Data/Repository/ObjectMap.h"
#include "Data/Repository/RecordSelect.h"
#include "Data/Repository/StoreSchema.h"
#include "Data/Storage/Database.h"

#include <QRegularExpression>

namespace quillo {

namespace {

RecordSummary summaryOf(const RecordFields& record) {
    RecordSummary summary;
    summary.id = record.id;
    summary.createdAt = record.createdAt;
    summary.title = record.title.value_or(QString());
    summary.preview = record.text.left(RecordSummary::previewLength);
    summary.sourceApp = record.sourceApp.value_or(QString());
    summary.status = record.status;
    summary.languageDetected = record.languageDetected.value_or(QString());
    summary.tagNames = record.tagNamesData ? decodeTagNames(*record.tagNamesData) : QStringList();
    summary.audioId = record.pendingAudioId ? *record.pendingAudioId : record.audioRetainedId.value_or(QString());
    summary.durationMs = record.durationMs;
    summary.wordCount = record.wordCount;
    summary.speakerCount = record.speakerCount;
    summary.isFavorite = record.isFavorite;
    summary.isMeetingMode = record.isMeetingMode;
    return summary;
}

/// The columns that `summaryOf` reads; the rest of the row is not read from the disk.
const EntityTable<RecordFields>& summaryTable() {
    static const EntityTable<RecordFields> table{"TranscriptionRecord", "ZTRANSCRIPTIONRECORD",
                                                 recordTable().columns.first(14)};
    return table;
}

/// Whether the dictation itself differs, apart from fields about its processing.
bool differsForItsOwner(const RecordFields& before, RecordFields now) {
    now.metricsServerId = before.metricsServerId;
    now.metricsReported = before.metricsReported;
    now.diarizationTaskId = before.diarizationTaskId;
    now.retryCount = before.retryCount;
    now.lastRetryAt = before.lastRetryAt;
    now.emptyResultCount = before.emptyResultCount;
    now.syncedAt = before.syncedAt;
    return !(now == before);
}

} // namespace

struct ModelContext::Implementation {
    explicit Implementation(std::unique_ptr<Database> connection) : database(std::move(connection)) {}

    std::unique_ptr<Database> database;
    ObjectMap<TranscriptionRecord, RecordFields, QUuid> records{recordTable(), &RecordFields::id};
    ObjectMap<Tag, TagFields, QUuid> tags{tagTable(), &TagFields::id};
    ObjectMap<AppSettings, AppSettingsFields, QString> settings{appSettingsTable(), &AppSettingsFields::userId};

    [[nodiscard]] bool hasChanges() const { return records.hasChanges() || tags.hasChanges() || settings.hasChanges(); }

    /// Sets the time of every change by the user, unless the caller has set it, as a synchronisation does.
    void stampChanges() {
        records.forEachChanged([now = QDateTime::currentDateTimeUtc()](auto& entry) {
            if (!entry.isNew && !entry.isRemoved && entry.stored.updatedAt == entry.object->updatedAt &&
                differsForItsOwner(entry.stored, entry.current()))
                entry.object->updatedAt = now;
        });
    }

    /// What the records said that are to be removed, in every version.
    QStringList removedTexts() {
        QStringList texts;
        records.forEachChanged([&](const auto& entry) {
            if (!entry.isRemoved)
                return;
            texts << entry.stored.text << entry.stored.rawText.value_or(QString());
            for (const auto& version : TranscriptionRecord(entry.stored).persistedVersions())
                texts << version.text;
        });
        return texts;
    }

    void writeChanges() {
        const auto write = [this](const auto& objects, const auto& table) {
            objects.write(
                *database, [&] { return storeSchema::takeKey(*database, table.entity, table.table); },
                storeSchema::entityNumber(*database, table.entity));
        };
        write(records, recordTable());
        write(tags, tagTable());
        write(settings, appSettingsTable());
    }

    /// Runs `query` as if the changes were saved.
    template <typename Query>
    auto withChanges(Query query) {
        if (!hasChanges())
            return query();
        const Transaction neverCommitted(*database);
        writeChanges();
        return query();
    }

    /// Calls `row` for each record of `query`.
    template <typename Row>
    void forEach(const RecordQuery& query, const std::string& columns, Row row) {
        withChanges([&] {
            const RecordSelect select(query, *database);
            if (!select.canMatch())
                return;
            Statement statement(*database, select.rows(columns));
            select.bind(statement);
            while (statement.step())
                row(statement);
        });
    }
};

ModelContext::ModelContext(std::unique_ptr<Database> database)
    : m_implementation(std::make_unique<Implementation>(std::move(database))) {}

ModelContext::~ModelContext() = default;

void ModelContext::insert(const RecordPointer& record) {
    auto& self = *m_implementation;
    if (auto* entry = self.records.find(record->id); entry && entry->object == record) {
        entry->isRemoved = false;
        return;
    }
    bool isTaken = self.records.find(record->id) != nullptr;
    if (!isTaken) {
        Statement statement(*self.database, "SELECT 1 FROM ZTRANSCRIPTIONRECORD WHERE ZID = ?1");
        storedValue::bind(statement, 1, record->id);
        isTaken = statement.step();
    }
    if (isTaken)
        throw StoreError(StoreError::Cause::duplicate,
                         QStringLiteral("The history holds a record with the id %1 already. Change that one instead.")
                             .arg(record->id.toString(QUuid::WithoutBraces)));
    self.records.addNew(record);
}

void ModelContext::remove(const RecordPointer& record) { m_implementation->records.remove(record); }

void ModelContext::save() {
    auto& self = *m_implementation;
    if (!self.hasChanges())
        return;
    self.stampChanges();
    const auto removedTexts = self.removedTexts();
    Transaction transaction(*self.database);
    self.writeChanges();
    transaction.commit();
    for (const auto& text : removedTexts)
        forgetDictated(text);
    const auto records = self.records.settle();
    SavedChanges changes{records.inserted, records.updated, records.removed};
    changes.tagsChanged = !self.tags.settle().isEmpty();
    changes.settingsChanged = !self.settings.settle().isEmpty();
    Q_EMIT saved(changes);
}

void ModelContext::rollback() {
    m_implementation->records.rollback();
    m_implementation->tags.rollback();
    m_implementation->settings.rollback();
}

bool ModelContext::hasChanges() const { return m_implementation->hasChanges(); }

RecordPointer ModelContext::record(const QUuid& id) {
    auto& self = *m_implementation;
    if (const auto* entry = self.records.find(id))
        return entry->isRemoved ? nullptr : entry->object;
    auto& statement = self.database->prepared("SELECT " + recordTable().columnList() + " FROM " + recordTable().table +
                                              " WHERE ZID = ?1");
    storedValue::bind(statement, 1, id);
    auto found = statement.step() ? self.records.adopt(recordTable().load(statement)) : nullptr;
    statement.reset();
    return found;
}

QList<RecordPointer> ModelContext::fetch(const RecordQuery& query) {
    auto& self = *m_implementation;
    QList<RecordPointer> records;
    self.forEach(query, recordTable().columnList("r."), [&](const Statement& row) {
        if (auto record = self.records.adopt(recordTable().load(row)))
            records.append(std::move(record));
    });
    return records;
}

QList<RecordSummary> ModelContext::summaries(const RecordQuery& query) {
    auto& self = *m_implementation;
    const auto& table = summaryTable();
    const auto preview = ", substr(r.ZTEXT, 1, " + std::to_string(RecordSummary::previewLength) + ")";
    QList<RecordSummary> summaries;
    self.forEach(query, table.columnList("r.") + preview, [&](const Statement& row) {
        auto fields = table.load(row);
        fields.text = row.text(static_cast<int>(table.columns.size()));
        summaries.append(summaryOf(fields));
    });
    return summaries;
}

int64_t ModelContext::count(const RecordQuery& query) {
    auto& self = *m_implementation;
    return self.withChanges([&] {
        const RecordSelect select(query, *self.database);
        if (!select.canMatch())
            return int64_t{0};
        Statement statement(*self.database, select.count());
        select.bind(statement);
        return statement.step() ? statement.integer(0) : 0;
    });
}

QList<QUuid> ModelContext::idsBeginningWith(const QString& digits, int64_t limit) {
    constexpr qsizetype idLength = 32;
    static const QRegularExpression hexadecimal(QStringLiteral("^[0-9a-fA-F]{1,32}$"));
    const auto given = QString(digits).remove(u'-');
    if (!hexadecimal.match(given).hasMatch())
        return {};
    const auto filled = [&given](QChar digit) {
        return QByteArray::fromHex(given.leftJustified(idLength, digit).toLatin1());
    };
    Statement statement(*m_implementation->database,
                        "SELECT ZID FROM ZTRANSCRIPTIONRECORD WHERE ZID BETWEEN ?1 AND ?2 ORDER BY ZID LIMIT ?3");
    statement.bindBlob(1, filled(u'0')).bindBlob(2, filled(u'f')).bind(3, limit);
    QList<QUuid> ids;
    while (statement.step())
        storedValue::load(statement, 0, ids.emplaceBack());
    return ids;
}

void ModelContext::insert(const TagPointer& tag) {
    if (auto* entry = m_implementation->tags.find(tag->id))
        entry->isRemoved = false;
    else
        m_implementation->tags.addNew(tag);
}

void ModelContext::remove(const TagPointer& tag) { m_implementation->tags.remove(tag); }

QList<TagPointer> ModelContext::tags() {
    auto& self = *m_implementation;
    return self.withChanges([&] {
        QList<TagPointer> tags;
        Statement statement(*self.database, "SELECT " + tagTable().columnList() + " FROM " + tagTable().table);
        while (statement.step())
            if (auto tag = self.tags.adopt(tagTable().load(statement)))
                tags.append(std::move(tag));
        return tags;
    });
}

void ModelContext::insert(const AppSettingsPointer& settings) {
    if (appSettings(settings->userId))
        throw StoreError(StoreError::Cause::duplicate,
                         QStringLiteral("The store holds settings of this user already. Change those instead."));
    m_implementation->settings.addNew(settings);
}

AppSettingsPointer ModelContext::appSettings(const QString& userId) {
    auto& self = *m_implementation;
    if (const auto* entry = self.settings.find(userId))
        return entry->object;
    auto& statement = self.database->prepared("SELECT " + appSettingsTable().columnList() + " FROM " +
                                              appSettingsTable().table + " WHERE ZUSERID = ?1 ORDER BY Z_PK LIMIT 1");
    statement.bind(1, userId);
    auto found = statement.step() ? self.settings.adopt(appSettingsTable().load(statement)) : nullptr;
    statement.reset();
    return found;
}

} // namespace quillo
