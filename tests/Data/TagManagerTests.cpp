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
        auto record = newRecord(QStringLiteral("text"), container->mainContext().count());
        record->setTagNames(tagNames);
        container->mainContext().insert(record);
        container->mainContext().save();
        return record;
    }

    TagManager manager;
};

TEST_F(Tags, AreUniqueWhateverTheirCaseAndBlanks) {
    const auto work = manager.createTag(QStringLiteral("work"));
    ASSERT_TRUE(work);
    EXPECT_EQ(manager.createTag(QStringLiteral("  Work\n")), work);
    EXPECT_EQ(manager.createTag(QStringLiteral(" \t ")), nullptr);
    EXPECT_EQ(names(), QStringList{QStringLiteral("work")});
    EXPECT_FALSE(work->isAutoTag);
}

TEST_F(Tags, AreSortedAsPeopleSort) {
    for (const auto* name : {u"tag 10", u"Zebra", u"tag 9", u"äpfel", u"apple", u"Tag 2"})
        manager.createTag(QString::fromUtf16(name));
    EXPECT_EQ(names(), (QStringList{QStringLiteral("äpfel"), QStringLiteral("apple"), QStringLiteral("Tag 2"),
                                    QStringLiteral("tag 9"), QStringLiteral("tag 10"), QStringLiteral("Zebra")}));
}

TEST_F(Tags, OfAnApplicationAreMadeOnce) {
    const std::tuple<std::optional<QString>, QStringList> cases[] = {
        {std::nullopt, {}},
        {QString(), {}},
        {QStringLiteral("Unknown"), {}},
        {QStringLiteral("EXTERNAL"), {}},
        {QStringLiteral("Firefox"), {QStringLiteral("Firefox")}},
        {QStringLiteral("Firefox"), {QStringLiteral("Firefox")}}};
    for (const auto& [app, expected] : cases) {
        const auto record = add({});
        record->sourceApp = app;
        manager.applyAutoTag(record);
        manager.applyAutoTag(record);
        EXPECT_EQ(record->tagNames(), expected);
    }
    ASSERT_EQ(names(), QStringList{QStringLiteral("Firefox")});
    EXPECT_TRUE(manager.allTags().first()->isAutoTag);

    const auto meeting = add({QStringLiteral("own")});
    manager.applyMeetingAutoTag(meeting, QStringLiteral(" Zoom "));
    manager.applyMeetingAutoTag(meeting, QStringLiteral("  "));
    EXPECT_EQ(meeting->tagNames(), (QStringList{QStringLiteral("own"), QStringLiteral("Zoom")}));
    // One that differs in case or blanks is the catalogue's.
    const auto shouted = add({});
    shouted->sourceApp = QStringLiteral(" FIREFOX ");
    manager.applyAutoTag(shouted);
    EXPECT_EQ(shouted->tagNames(), QStringList{QStringLiteral("Firefox")});
    EXPECT_FALSE(container->mainContext().hasChanges());
}

TEST_F(Tags, LeaveEveryRecordWhenTheyAreDeleted) {
    QList<RecordPointer> held;
    for (int i = 0; i < 1203; ++i) {
        auto record = add({QStringLiteral("other"), QStringLiteral("gone"), QStringLiteral("Gone")});
        if (i % 100 == 0)
            held.append(record);
    }
    const auto tag = manager.createTag(QStringLiteral("gone"));
    manager.createTag(QStringLiteral("other"));
    manager.deleteTag(tag);
    EXPECT_EQ(names(), QStringList{QStringLiteral("other")});
    RecordQuery query;
    query.tagNames = {QStringLiteral("gone")};
    EXPECT_EQ(container->mainContext().count(query), 0);
    query.tagNames = {QStringLiteral("other"), QStringLiteral("Gone")};
    EXPECT_EQ(container->mainContext().count(query), 1203);
    for (const auto& record : held)
        EXPECT_FALSE(record->tagNames().contains(QStringLiteral("gone")));
}

TEST_F(Tags, FilterByAllOfTheSelected) {
    const auto a = add({QStringLiteral("a")});
    const auto ab = add({QStringLiteral("b"), QStringLiteral("a")});
    const auto none = add({});
    const QList<RecordPointer> all{none, ab, a};
    const auto filtered = [&](const QSet<QString>& selected) { return TagManager::filterRecords(all, selected); };
    EXPECT_EQ(filtered({}), all);
    EXPECT_EQ(filtered({QStringLiteral("a")}), (QList<RecordPointer>{ab, a}));
    EXPECT_EQ(filtered({QStringLiteral("a"), QStringLiteral("b")}), QList<RecordPointer>{ab});
    EXPECT_EQ(filtered({QStringLiteral("A")}), QList<RecordPointer>{});
}

TEST_F(Tags, SurviveTheRestart) {
    auto& context = open();
    manager.setContext(&context);
    const auto tag = manager.createTag(QStringLiteral("kept"), true);
    const auto before = static_cast<const TagFields&>(*tag);
    manager.setContext(nullptr);
    manager.setContext(&open());
    ASSERT_EQ(manager.allTags().size(), 1);
    EXPECT_EQ(manager.allTags().first()->id, before.id);
    EXPECT_EQ(manager.allTags().first()->createdAt, before.createdAt);
    manager.setContext(nullptr);
}

class StaleRecords : public StoreFixture {};

TEST_F(StaleRecords, AreSettledAtTheStart) {
    const std::tuple<QString, QString, std::optional<QString>> cases[] = {
        {RecordStatus::recording, QString(), std::nullopt},
        {RecordStatus::processing, QString(), std::nullopt},
        {RecordStatus::recording, QStringLiteral("text"), RecordStatus::completed},
        {RecordStatus::processing, QStringLiteral("text"), RecordStatus::completed},
        {RecordStatus::diarizing, QString(), RecordStatus::completed},
        {RecordStatus::diarizing, QStringLiteral("text"), RecordStatus::completed},
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
    DataContainer::seedTestDataIfNeeded(context, {QStringLiteral("quillo")});
    EXPECT_EQ(context.count(), 0);
    for (int start = 0; start < 2; ++start)
        DataContainer::seedTestDataIfNeeded(context, {QStringLiteral("quillo"), QStringLiteral("--seed-data")});
    RecordQuery seeded;
    seeded.sourceDevice = QStringLiteral("MacMini-E2E");
    const auto records = open().fetch(seeded);
    ASSERT_EQ(records.size(), 7);
    EXPECT_EQ(records.first()->sessionId, QStringLiteral("e2e-001"));
    EXPECT_EQ(records.last()->sessionId, QStringLiteral("e2e-007"));
    EXPECT_EQ(records.last()->pendingAudioId, QStringLiteral("pending-audio-e2e-001"));
    EXPECT_EQ(std::count_if(records.begin(), records.end(),
                            [](const auto& record) { return record->isMeetingMode && record->meetingSegments(); }),
              2);
}

} // namespace
} // namespace quillo::test
