#include "Data/TagManager.h"
#include "StoreFixture.h"

namespace quillo::test {
namespace {

class Tags : public StoreFixture {
protected:
    Tags() {
        container = DataContainer::createInMemory();
        manager.setContext(&container->mainContext());
    }
    [[nodiscard]] QStringList names() const {
        QStringList list;
        for (const auto& tag : manager.allTags())
            list.append(tag->name);
        return list;
    }
    RecordPointer add(const QStringList& tagNames) {
        auto record = newRecord(u"text"_qs, container->mainContext().count());
        record->setTagNames(tagNames);
        container->mainContext().insert(record);
        container->mainContext().save();
        return record;
    }

    TagManager manager;
};

TEST_F(Tags, AreUniqueWhateverTheirCaseAndBlanks) {
    const auto work = manager.createTag(u"work"_qs);
    ASSERT_TRUE(work);
    EXPECT_EQ(manager.createTag(u"  Work\n"_qs), work);
    EXPECT_EQ(manager.createTag(u" \t "_qs), nullptr);
    EXPECT_EQ(names(), QStringList{u"work"_qs});
    EXPECT_FALSE(work->isAutoTag);
}

TEST_F(Tags, AreSortedAsPeopleSort) {
    for (const auto* name : {u"tag 10", u"Zebra", u"tag 9", u"äpfel", u"apple", u"Tag 2"})
        manager.createTag(QString::fromUtf16(name));
    EXPECT_EQ(names(), (QStringList{u"äpfel"_qs, u"apple"_qs, u"Tag 2"_qs, u"tag 9"_qs, u"tag 10"_qs, u"Zebra"_qs}));
}

TEST_F(Tags, OfAnApplicationAreMadeOnce) {
    const std::pair<std::optional<QString>, QStringList> cases[] = {{std::nullopt, {}},
                                                                    {QString(), {}},
                                                                    {u"Unknown"_qs, {}},
                                                                    {u"EXTERNAL"_qs, {}},
                                                                    {u"Firefox"_qs, {u"Firefox"_qs}},
                                                                    {u"Firefox"_qs, {u"Firefox"_qs}}};
    for (const auto& [app, expected] : cases) {
        const auto record = add({});
        record->sourceApp = app;
        manager.applyAutoTag(record);
        manager.applyAutoTag(record);
        EXPECT_EQ(record->tagNames(), expected);
    }
    ASSERT_EQ(names(), QStringList{u"Firefox"_qs});
    EXPECT_TRUE(manager.allTags().first()->isAutoTag);

    const auto meeting = add({u"own"_qs});
    manager.applyMeetingAutoTag(meeting, u" Zoom "_qs);
    manager.applyMeetingAutoTag(meeting, u"  "_qs);
    EXPECT_EQ(meeting->tagNames(), (QStringList{u"own"_qs, u"Zoom"_qs}));
    // One that differs in case or blanks is the catalogue's.
    const auto shouted = add({});
    shouted->sourceApp = u" FIREFOX "_qs;
    manager.applyAutoTag(shouted);
    EXPECT_EQ(shouted->tagNames(), QStringList{u"Firefox"_qs});
    EXPECT_FALSE(container->mainContext().hasChanges());
}

TEST_F(Tags, LeaveEveryRecordWhenTheyAreDeleted) {
    QList<RecordPointer> held;
    for (int i = 0; i < 1203; ++i) {
        auto record = add({u"other"_qs, u"gone"_qs, u"Gone"_qs});
        if (i % 100 == 0)
            held.append(record);
    }
    const auto tag = manager.createTag(u"gone"_qs);
    manager.createTag(u"other"_qs);
    manager.deleteTag(tag);
    EXPECT_EQ(names(), QStringList{u"other"_qs});
    RecordQuery query;
    query.tagNames = {u"gone"_qs};
    EXPECT_EQ(container->mainContext().count(query), 0);
    query.tagNames = {u"other"_qs, u"Gone"_qs};
    EXPECT_EQ(container->mainContext().count(query), 1203);
    for (const auto& record : held)
        EXPECT_FALSE(record->tagNames().contains(u"gone"_qs));
}

TEST_F(Tags, FilterByAllOfTheSelected) {
    const auto a = add({u"a"_qs});
    const auto ab = add({u"b"_qs, u"a"_qs});
    const auto none = add({});
    const QList<RecordPointer> all{none, ab, a};
    const auto filtered = [&](const QSet<QString>& selected) { return TagManager::filterRecords(all, selected); };
    EXPECT_EQ(filtered({}), all);
    EXPECT_EQ(filtered({u"a"_qs}), (QList<RecordPointer>{ab, a}));
    EXPECT_EQ(filtered({u"a"_qs, u"b"_qs}), QList<RecordPointer>{ab});
    EXPECT_EQ(filtered({u"A"_qs}), QList<RecordPointer>{});
}

TEST_F(Tags, SurviveTheRestart) {
    auto& context = open();
    manager.setContext(&context);
    const auto tag = manager.createTag(u"kept"_qs, true);
    const auto before = static_cast<const TagFields&>(*tag);
    manager.setContext(nullptr);
    manager.setContext(&open());
    ASSERT_EQ(manager.allTags().size(), 1);
    EXPECT_EQ(manager.allTags().first()->id, before.id);
    EXPECT_EQ(manager.allTags().first()->createdAt, before.createdAt);
    manager.setContext(nullptr);
}

using StaleRecords = StoreFixture;

TEST_F(StaleRecords, AreSettledAtTheStart) {
    const std::tuple<QString, QString, std::optional<QString>> cases[] = {
        {RecordStatus::recording, QString(), std::nullopt},
        {RecordStatus::processing, QString(), std::nullopt},
        {RecordStatus::recording, u"text"_qs, RecordStatus::completed},
        {RecordStatus::processing, u"text"_qs, RecordStatus::completed},
        {RecordStatus::diarizing, QString(), RecordStatus::completed},
        {RecordStatus::diarizing, u"text"_qs, RecordStatus::completed},
        {RecordStatus::pendingTranscription, QString(), RecordStatus::pendingTranscription},
        {RecordStatus::unrecognized, QString(), RecordStatus::unrecognized},
        {RecordStatus::completed, QString(), RecordStatus::completed}};
    auto& context = open();
    QList<QUuid> ids;
    for (const auto& [status, text, expected] : cases) {
        const auto record = newRecord(text);
        record->status = status;
        context.insert(record);
        ids.append(record->id);
    }
    context.save();
    auto& next = open();
    TranscriptionRecord::cleanupStaleRecordings(next);
    EXPECT_FALSE(next.hasChanges());
    qsizetype index = 0;
    for (const auto& [status, text, expected] : cases) {
        const auto record = next.record(ids.at(index++));
        EXPECT_EQ(record ? std::optional(record->status) : std::nullopt, expected) << index;
    }
}

TEST_F(StaleRecords, DemonstrationRecordsComeOnce) {
    auto& context = open();
    DataContainer::seedTestDataIfNeeded(context, {u"quillo"_qs});
    EXPECT_EQ(context.count(), 0);
    for (int start = 0; start < 2; ++start)
        DataContainer::seedTestDataIfNeeded(context, {u"quillo"_qs, u"--seed-data"_qs});
    RecordQuery seeded;
    seeded.sourceDevice = u"MacMini-E2E"_qs;
    const auto records = open().fetch(seeded);
    ASSERT_EQ(records.size(), 7);
    EXPECT_EQ(records.first()->sessionId, u"e2e-001"_qs);
    EXPECT_EQ(records.last()->sessionId, u"e2e-007"_qs);
    EXPECT_EQ(records.last()->pendingAudioId, u"pending-audio-e2e-001"_qs);
    EXPECT_EQ(std::count_if(records.begin(), records.end(),
                            [](const auto& record) { return record->isMeetingMode && record->meetingSegments(); }),
              2);
}

} // namespace
} // namespace quillo::test
