#include "Data/Storage/Database.h"
#include "StoreFixture.h"

namespace quillo::test {
namespace {

using Context = StoreFixture;

/// Every field away from its default.
RecordFields filledFields() {
    RecordFields f;
    const auto date = QDateTime::fromMSecsSinceEpoch(1'790'000'000'123, Qt::UTC);
    f.userId = u"u"_qs;
    f.text = u"text with \" and \n and 你好 and "_qs + QChar(u'\0') + u"end"_qs;
    f.sessionId = u"s"_qs;
    f.languageDetected = u"en"_qs;
    f.createdAt = date;
    f.durationMs = 1LL << 40;
    f.wordCount = 3;
    f.sourceApp = u"App"_qs;
    f.isFavorite = f.metricsReported = f.isMeetingMode = f.wasLimitCapped = true;
    f.metricsServerId = u"m"_qs;
    f.status = RecordStatus::unrecognized;
    f.diarizationTaskId = u"d"_qs;
    f.clientRecordingId = u"c"_qs;
    f.pendingAudioId = u"p"_qs;
    f.retryCount = 4;
    f.lastRetryAt = date.addSecs(1);
    f.emptyResultCount = 5;
    f.audioRetainedId = u"a"_qs;
    f.speakerCount = 6;
    f.rawText = QString(QLatin1String(""));
    f.meetingSegmentsData = f.speakerNamesData = f.channelSegmentsData = QByteArray("\0\xff x", 4);
    f.meetingSwitchTimestamp = 1.25;
    f.liveMeetingLabeledText = f.liveMeetingPlainText = f.meetingSummary = f.meetingActionItems = u"long"_qs;
    f.title = u"title"_qs;
    f.textVersionsData = QByteArray("");
    f.tagNamesData = QByteArray("[\"x\"]");
    f.syncedAt = date.addYears(-50);
    f.sourceDevice = u"macOS"_qs;
    f.updatedAt = date.addYears(50);
    f.detectedLanguageMismatch = f.mismatchDismissed = true;
    f.mismatchDetectedLanguage = f.mismatchDetectedLanguageName = f.mismatchConfiguredLanguage = u"de"_qs;
    return f;
}

TEST_F(Context, KeepsEveryFieldOfARecord) {
    const auto filled = filledFields();
    const RecordFields plain;
    auto& context = open();
    context.insert(std::make_shared<TranscriptionRecord>(filled));
    context.insert(std::make_shared<TranscriptionRecord>(plain));
    context.save();
    auto& reopened = open();
    ASSERT_TRUE(reopened.record(filled.id) && reopened.record(plain.id));
    EXPECT_TRUE(static_cast<const RecordFields&>(*reopened.record(filled.id)) == filled);
    EXPECT_TRUE(static_cast<const RecordFields&>(*reopened.record(plain.id)) == plain);
    EXPECT_FALSE(reopened.hasChanges());

    // Also when every field is changed, and when it is changed back.
    auto changed = filled;
    changed.id = plain.id;
    static_cast<RecordFields&>(*reopened.record(plain.id)) = changed;
    reopened.save();
    auto& again = open();
    EXPECT_TRUE(static_cast<const RecordFields&>(*again.record(plain.id)) == changed);
    static_cast<RecordFields&>(*again.record(plain.id)) = plain;
    again.save();
    EXPECT_TRUE(static_cast<const RecordFields&>(*open().record(plain.id)) == plain);
}

TEST_F(Context, HasOneObjectForEachRecord) {
    auto& context = open();
    const auto record = newRecord(u"one"_qs);
    context.insert(record);
    EXPECT_EQ(context.record(record->id), record);
    context.save();
    EXPECT_EQ(context.fetch({}).value(0), record);
    EXPECT_EQ(context.record(record->id), record);
    EXPECT_THROW(context.insert(std::make_shared<TranscriptionRecord>(static_cast<const RecordFields&>(*record))),
                 StoreError);
    auto& other = open();
    EXPECT_THROW(other.insert(record), StoreError);
    EXPECT_FALSE(other.hasChanges());
    EXPECT_EQ(other.record(QUuid::createUuid()), nullptr);
}

TEST_F(Context, KeepsAChangeThatNobodyHoldsUntilItIsSaved) {
    auto& context = open();
    QList<QUuid> ids;
    for (int i = 0; i < 2000; ++i) {
        const auto record = newRecord(QString::number(i), i);
        ids.append(record->id);
        context.insert(record);
    }
    context.save();
    context.record(ids.at(7))->text = u"changed"_qs;
    // Enough others to make the context forget what it need not know.
    for (const auto& id : ids)
        EXPECT_TRUE(context.record(id));
    EXPECT_EQ(context.record(ids.at(7))->text, u"changed"_qs);
    context.save();
    EXPECT_EQ(open().record(ids.at(7))->text, u"changed"_qs);
}

TEST_F(Context, FetchesSeeWhatIsNotSaved) {
    auto& context = open();
    const auto kept = newRecord(u"kept"_qs, 10);
    const auto removed = newRecord(u"removed"_qs, 20);
    context.insert(kept);
    context.insert(removed);
    context.save();

    kept->addTag(u"t"_qs);
    kept->text = u"changed"_qs;
    context.remove(removed);
    const auto fresh = newRecord(u"fresh changed"_qs, 5);
    context.insert(fresh);
    const auto changed = searchFor(u"chang"_qs);
    EXPECT_EQ(context.fetch(changed), (QList<RecordPointer>{fresh, kept}));
    EXPECT_EQ(context.count(), 2);
    RecordQuery tagged;
    tagged.tagNames = {u"t"_qs};
    EXPECT_EQ(context.summaries(tagged).value(0).preview, u"changed"_qs);
    EXPECT_EQ(context.record(removed->id), nullptr);

    // A fetch does not save.
    EXPECT_TRUE(context.hasChanges());
    const auto reader = DataContainer::openReadOnly();
    EXPECT_EQ(reader->mainContext().count(), 2);
    EXPECT_TRUE(reader->mainContext().fetch(changed).isEmpty());

    context.rollback();
    EXPECT_FALSE(context.hasChanges());
    EXPECT_EQ(kept->text, u"kept"_qs);
    EXPECT_EQ(texts(context.fetch({})), (QStringList{u"kept"_qs, u"removed"_qs}));
}

TEST_F(Context, TellsWhatASaveWrote) {
    auto& context = open();
    QList<SavedChanges> told;
    QObject::connect(&context, &ModelContext::saved, [&](const SavedChanges& changes) { told.append(changes); });
    const auto a = newRecord(u"a"_qs);
    const auto b = newRecord(u"b"_qs);
    context.insert(a);
    context.save();
    context.save();
    a->isFavorite = true;
    context.insert(b);
    context.save();
    context.remove(a);
    context.save();
    ASSERT_EQ(told.size(), 3);
    EXPECT_EQ(told.at(1).inserted, QList<QUuid>{b->id});
    EXPECT_EQ(told.at(1).updated, QList<QUuid>{a->id});
    EXPECT_EQ(told.at(2).removed, QList<QUuid>{a->id});
}

TEST_F(Context, StampsTheChangesOfItsOwnerAlone) {
    auto& context = open();
    const auto record = newRecord(u"said"_qs);
    context.insert(record);
    context.save();
    EXPECT_EQ(record->updatedAt, std::nullopt) << "it is as it was made";
    const auto given = QDateTime::fromMSecsSinceEpoch(1'790'000'000'000, Qt::UTC);
    const std::pair<std::function<void()>, bool> changes[] = {
        {[&] { record->toggleFavorite(); }, true},
        {[&] { record->addTag(u"work"_qs); }, true},
        {[&] { record->text = u"corrected"_qs; }, true},
        {[&] { record->title = u"title"_qs; }, true},
        {[&] { record->markRetryAttempt(); }, false},
        {[&] { record->syncedAt = given.addDays(1); }, false},
        {[&] { record->markMetricsReported(u"m"_qs); }, false},
    };
    for (const auto& [change, isStamped] : changes) {
        record->updatedAt = given;
        context.save();
        change();
        const auto before = QDateTime::currentDateTimeUtc();
        context.save();
        EXPECT_EQ(record->updatedAt.value_or(given) >= before, isStamped);
    }
}

TEST_F(Context, AFailedSaveWritesNothingAndKeepsTheChanges) {
    open();
    container.reset();
    auto database = std::make_unique<Database>(DataContainer::storeURL());
    auto* const connection = database.get();
    ModelContext context(std::move(database));
    const auto before = newRecord(u"before"_qs);
    context.insert(before);
    context.save();
    const auto pages = connection->integer("PRAGMA page_count").value_or(0);
    connection->execute("PRAGMA max_page_count = " + std::to_string(pages + 4));

    before->text = u"after"_qs;
    const auto large = newRecord(u"large "_qs.repeated(100'000));
    context.insert(large);
    try {
        context.save();
        FAIL() << "saved beyond the limit";
    } catch (const StoreError& error) {
        EXPECT_EQ(error.cause(), StoreError::Cause::diskFull);
        EXPECT_TRUE(error.message().contains(u"Free some space"_qs)) << error.what();
    }
    EXPECT_TRUE(context.hasChanges());
    EXPECT_EQ(DataContainer::openReadOnly()->mainContext().fetch({}).value(0)->text, u"before"_qs);

    connection->execute("PRAGMA max_page_count = 1000000");
    context.save();
    EXPECT_EQ(texts(DataContainer::openReadOnly()->mainContext().fetch({})).size(), 2);
}

TEST_F(Context, FindsIdsByTheirBeginning) {
    auto& context = open();
    for (const auto* id : {u"{1a2b3c4d-0000-4000-8000-000000000001}", u"{1a2b3fff-0000-4000-8000-000000000002}",
                           u"{ffffffff-ffff-ffff-ffff-ffffffffffff}"}) {
        auto record = newRecord(QString());
        record->id = QUuid(QString::fromUtf16(id));
        context.insert(record);
    }
    context.save();
    const std::pair<qsizetype, std::vector<const char*>> cases[] = {
        {2, {"1", "1a2b3"}},
        {1, {"1A2B3c", "1a2b3c4d-0000", "1a2b3c4d-0000-4000-8000-000000000001", "f"}},
        {0, {"0", "", "-", "1a2x", "%", "ffffffff-ffff-ffff-ffff-fffffffffffff"}}};
    for (const auto& [found, beginnings] : cases)
        for (const auto* const digits : beginnings)
            EXPECT_EQ(context.idsBeginningWith(QString::fromLatin1(digits), 10).size(), found) << digits;
    EXPECT_EQ(context.idsBeginningWith(u"1"_qs, 1).size(), 1);
}

TEST_F(Context, KeepsSettingsOfEachUser) {
    auto& context = open();
    auto settings = std::make_shared<AppSettings>();
    settings->userId = u"u1"_qs;
    settings->selectedLanguages = {u"de"_qs, u"日本語"_qs};
    settings->pushToTalkKeyCode = 0xffff;
    settings->pushToTalkModifiers = 0xffff'ffff'ffff'ffffULL;
    settings->profession = QString(QLatin1String(""));
    context.insert(settings);
    EXPECT_THROW(context.insert(std::make_shared<AppSettings>(static_cast<const AppSettingsFields&>(*settings))),
                 StoreError);
    context.save();
    auto& reopened = open();
    ASSERT_TRUE(reopened.appSettings(u"u1"_qs));
    EXPECT_TRUE(static_cast<const AppSettingsFields&>(*reopened.appSettings(u"u1"_qs)) == *settings);
    EXPECT_FALSE(reopened.appSettings(u"u2"_qs));
}

} // namespace
} // namespace quillo::test
