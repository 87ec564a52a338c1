#pragma once

#include "Data/Models/AppSettings.h"
#include "Data/Models/Tag.h"
#include "Data/Models/TranscriptionRecord.h"
#include "Data/Repository/RecordQuery.h"
#include "Data/Repository/RecordSummary.h"
#include "Data/Storage/StoreError.h"

#include <QList>
#include <QObject>

#include <memory>
#include <vector>

namespace quillo {

class Database;

/// What one save wrote.
struct SavedChanges {
    QList<QUuid> inserted;
    QList<QUuid> updated;
    QList<QUuid> removed;
    bool tagsChanged = false;
    bool settingsChanged = false;
};

/// The objects of the history over one database connection. Main thread. The name stays: see docs/compatibility.md.
///
/// Objects are unique: the same id gives the same pointer as long as it is held elsewhere or has unsaved changes.
/// Change objects by assigning their members; nothing reaches the file before `save()`. Fetches see unsaved changes,
/// including new and removed records: they write them in a transaction that is rolled back after the query.
class ModelContext final : public QObject {
    Q_OBJECT
public:
    explicit ModelContext(std::unique_ptr<Database> database);
    ~ModelContext() override;

    /// Throws StoreError `duplicate` when another record has this id.
    void insert(const RecordPointer& record);
    void remove(const RecordPointer& record);
    /// Writes all changes in one transaction and emits `saved` if there were any. On StoreError the file is unchanged,
    /// and all changes are kept for a later save.
    void save();
    /// Discards all unsaved changes and restores the stored values of changed objects.
    void rollback();
    [[nodiscard]] bool hasChanges() const;

    // Each throws StoreError.
    /// Nothing when there is none.
    RecordPointer record(const QUuid& id);
    QList<RecordPointer> fetch(const RecordQuery& query);
    /// The same records as `fetch`, with only what a list shows.
    QList<RecordSummary> summaries(const RecordQuery& query);
    int64_t count(const RecordQuery& query = {});
    /// Up to `limit` ids of saved records that begin with these hexadecimal digits (dashes are ignored); none if the
    /// text cannot begin an id.
    QList<QUuid> idsBeginningWith(const QString& digits, int64_t limit);

    void insert(const TagPointer& tag);
    void remove(const TagPointer& tag);
    /// The whole catalogue, in no order.
    QList<TagPointer> tags();

    void insert(const AppSettingsPointer& settings);
    /// A user's settings, if any were inserted.
    AppSettingsPointer appSettings(const QString& userId);

Q_SIGNALS:
    /// Emitted after a save has reached the file.
    void saved(const quillo::SavedChanges& changes);

private:
    struct Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace quillo
