#include "Data/TagManager.h"

#include "Core/Log.h"

#include <QCollator>

#include <algorithm>

namespace quillo {

namespace {

void logError(const QString& message) {
    appLog(QStringLiteral("❌ %1").arg(message), LogLevel::error, QStringLiteral("Tags"));
}

/// Sorts names by the rules of the user's language, and numbers by their value.
QCollator nameOrder() {
    // The C locale compares bytes, which is not a useful order of names.
    QCollator collator(QLocale().language() == QLocale::C ? QLocale(QLocale::English) : QLocale());
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    return collator;
}

} // namespace

TagManager& TagManager::shared() {
    // Never destroyed.
    static auto* const manager = new TagManager;
    return *manager;
}

void TagManager::setContext(ModelContext* context) {
    m_context = context;
    m_allTags.clear();
    if (m_context)
        loadTags();
}

void TagManager::loadTags() {
    if (!m_context)
        return;
    try {
        auto tags = m_context->tags();
        const auto order = nameOrder();
        std::sort(tags.begin(), tags.end(), [&order](const TagPointer& a, const TagPointer& b) {
            const int byName = order.compare(a->name, b->name);
            return byName != 0 ? byName < 0 : a->name < b->name;
        });
        m_allTags = tags;
        Q_EMIT allTagsChanged();
    } catch (const StoreError& error) {
        logError(QStringLiteral("Tags cannot be loaded: %1").arg(error.message()));
    }
}

TagPointer TagManager::createTag(const QString& name, bool isAutoTag) {
    const auto newName = name.trimmed();
    if (newName.isEmpty() || !m_context)
        return nullptr;
    try {
        const auto lowered = newName.toLower();
        for (const auto& tag : m_context->tags())
            if (tag->name.toLower() == lowered)
                return tag;
        auto tag = std::make_shared<Tag>();
        tag->name = newName;
        tag->isAutoTag = isAutoTag;
        tag->createdAt = QDateTime::currentDateTimeUtc();
        m_context->insert(tag);
        if (!saveContext())
            return nullptr;
        loadTags();
        return tag;
    } catch (const StoreError& error) {
        logError(QStringLiteral("The tag cannot be made: %1").arg(error.message()));
        return nullptr;
    }
}

void TagManager::deleteTag(const TagPointer& tag) {
    if (!m_context)
        return;
    try {
        removeTagFromAllRecords(tag->name);
        m_context->remove(tag);
    } catch (const StoreError& error) {
        logError(QStringLiteral("The tag cannot be deleted: %1").arg(error.message()));
        return;
    }
    saveContext();
    loadTags();
}

void TagManager::removeTagFromAllRecords(const QString& tagName) {
    // Work in parts: all records of a large history would not fit in memory.
    constexpr int64_t atOnce = 500;
    RecordQuery query;
    query.tagNames = {tagName};
    query.limit = atOnce;
    for (;;) {
        const auto records = m_context->fetch(query);
        if (records.isEmpty())
            return;
        for (const auto& record : records)
            record->removeTag(tagName);
        m_context->save();
    }
}

void TagManager::applyAutoTag(const RecordPointer& record) {
    if (!record->sourceApp || record->sourceApp->isEmpty())
        return;
    const auto app = record->sourceApp->toLower();
    if (app == QStringLiteral("external") || app == QStringLiteral("unknown"))
        return;
    addAutoTag(record, *record->sourceApp);
}

void TagManager::applyMeetingAutoTag(const RecordPointer& record, const QString& meetingAppName) {
    addAutoTag(record, meetingAppName.trimmed());
}

void TagManager::addAutoTag(const RecordPointer& record, const QString& name) {
    // The catalogue may have it in another spelling; a record has the catalogue's.
    const auto tag = createTag(name, true);
    if (!tag || record->tagNames().contains(tag->name))
        return;
    record->addTag(tag->name);
    saveContext();
}

QList<RecordPointer> TagManager::filterRecords(const QList<RecordPointer>& records, const QSet<QString>& tagNames) {
    QList<RecordPointer> matching;
    std::copy_if(records.begin(), records.end(), std::back_inserter(matching), [&](const RecordPointer& record) {
        const auto names = record->tagNames();
        return std::all_of(tagNames.begin(), tagNames.end(),
                           [&names](const QString& name) { return names.contains(name); });
    });
    return matching;
}

bool TagManager::saveContext() {
    try {
        m_context->save();
        return true;
    } catch (const StoreError& error) {
        logError(QStringLiteral("Tags cannot be saved: %1").arg(error.message()));
        return false;
    }
}

} // namespace quillo
