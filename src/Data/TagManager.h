#pragma once

#include "Data/ModelContext.h"

#include <QObject>
#include <QSet>

namespace quillo {

/// The catalogue of tags, and their application to records. Main thread; failures are logged under "Tags".
class TagManager final : public QObject {
    Q_OBJECT
public:
    static TagManager& shared();
    explicit TagManager(ModelContext* context = nullptr) : m_context(context) {}

    /// Works on `context` from now on, which must outlive the manager or be replaced; loads its tags.
    void setContext(ModelContext* context);

    /// Sorted by name as people sort, numbers by value.
    [[nodiscard]] const QList<TagPointer>& allTags() const { return m_allTags; }
    void loadTags();
    /// The new tag, or the one that has this name in any case; nothing for a blank name or after a failure.
    TagPointer createTag(const QString& name, bool isAutoTag = false);
    /// Also takes the name from every record.
    void deleteTag(const TagPointer& tag);
    /// Labels a record with the application it was dictated into.
    void applyAutoTag(const RecordPointer& record);
    void applyMeetingAutoTag(const RecordPointer& record, const QString& meetingAppName);
    /// Those that carry every selected name, in their order; all of them when none is selected.
    [[nodiscard]] static QList<RecordPointer> filterRecords(const QList<RecordPointer>& records,
                                                            const QSet<QString>& tagNames);

Q_SIGNALS:
    void allTagsChanged();

private:
    void removeTagFromAllRecords(const QString& tagName);
    void addAutoTag(const RecordPointer& record, const QString& name);
    bool saveContext();

    ModelContext* m_context;
    QList<TagPointer> m_allTags;
};

} // namespace quillo
