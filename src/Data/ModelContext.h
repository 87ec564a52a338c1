#pragma once

#include "Data/Models/AppSettings.h"
#include "Data/Models/Tag.h"
#include "Data/Models/TranscriptionRecord.h"
#include "Data/Repository/RecordQuery.h"
#include "Data/Repository/RecordSummary.h"
#include "Data/StoreError.h"

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

/// The objects of the history over one database connection. Main thread.
///
/// An object is unique: the same id gives the same pointer while anybody holds it, or while it has unsaved changes.
/// Objects are changed by assigning their members; nothing reaches the file before `save()`. Fetches see unsaved
/// changes, new and removed records included: they are written in a transaction that is rolled back after the query.
class ModelContext final : public QObject {
    Q_OBJECT
public:
    explicit ModelContext(std::unique_ptr<Database> database);
    ~ModelContext() override;

    /// Throws StoreError `duplicate` when another record has this id.
    void insert(const RecordPointer& record);
    void remove(const RecordPointer& record);
    /// Writes all changes in one transaction. Throws StoreError; then nothing of them is in the file, and all of them
    /// stay for a later save. Emits `saved` when there were any.
    void save();
    /// Forgets all unsaved changes: changed objects get their stored values back.
    void rollback();
    [[nodiscard]] bool hasChanges() const;

    // Each throws StoreError.
    /// Nothing when there is none.
    RecordPointer record(const QUuid& id);
    QList<RecordPointer> fetch(const RecordQuery& query);
    /// The same records as `fetch`, only what a list shows of them.
    QList<RecordSummary> summaries(const RecordQuery& query);
    int64_t count(const RecordQuery& query = {});
    /// Up to `limit` ids of saved records that begin with these hexadecimal digits (dashes do not matter); none when it
    /// is no beginning of an id.
    QList<QUuid> idsBeginningWith(const QString& digits, int64_t limit);

    void insert(const TagPointer& tag);
    void remove(const TagPointer& tag);
    /// The whole catalogue, in no order.
    QList<TagPointer> tags();

    void insert(const AppSettingsPointer& settings);
    /// A user's settings; nothing when none were inserted.
    AppSettingsPointer appSettings(const QString& userId);

Q_SIGNALS:
    /// After a save reached the file.
    void saved(const quillo::SavedChanges& changes);

private:
    struct Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace quillo
