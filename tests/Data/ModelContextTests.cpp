#include "Data/Storage/Database.h"
#include "StoreFixture.h"

namespace quillo::test {
namespace {

class Context : public StoreFixture {};

/// Every field away from its default.
RecordFields filledFields() {
    RecordFields f;
    const auto date = QDateTime::fromMSecsSinceEpoch(1'790'000'000'123, Qt::UTC);
    f.userId = QStringLiteral("u");
    f.text = QStringLiteral("text with \" and \n and 你好 and ") + QChar(u'\0') + QStringLiteral("end");
    f.sessionId = QStringLiteral("s");
    f.languageDetected = QStringLiteral("en");
    f.createdAt = date;
    f.durationMs = 1LL << 40;
    f.wordCount = 3;
    f.sourceApp = QStringLiteral("App");
    f.isFavorite = f.metricsReported = f.isMeetingMode = f.wasLimitCapped = true;
    f.metricsServerId = QStringLiteral("m");
    f.status = RecordStatus::unrecognized;
    f.diarizationTaskId = QStringLiteral("d");
    f.clientRecordingId = QStringLiteral("c");
    f.pendingAudioId = QStringLiteral("p");
    f.retryCount = 4;
    f.lastRetryAt = date.addSecs(1);
    f.emptyResultCount = 5;
    f.audioRetainedId = QStringLiteral("a");
    f.speakerCount = 6;
    f.rawText = QString(QLatin1String(""));
    f.meetingSegmentsData = f.speakerNamesData = f.channelSegmentsData = QByteArray("\0\xff x", 4);
    f.meetingSwitchTimestamp = 1.25;
    f.liveMeetingLabeledText = f.liveMeetingPlainText = f.meetingSummary = f.meetingActionItems =
        QStringLiteral("long");
    f.title = QStringLiteral("title");
    f.textVersionsData = QByteArray("");
    f.tagNamesData = QByteArray("[\"x\"]");
    f.syncedAt = date.addYears(-50);
    f.sourceDevice = QStringLiteral("macOS");
    f.updatedAt = date.addYears(50);
    f.detectedLanguageMismatch = f.mismatchDismissed = true;
    f.mismatchDetectedLanguage = f.mismatchDetectedLanguageName = f.mismatchConfiguredLanguage = QStringLiteral("de");
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
    const auto record = newRecord(QStringLiteral("one"));
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
    context.record(ids.at(7))->text = QStringLiteral("changed");
    // Enough others to make the context forget what it need not know.
    for (const auto& id : ids)
        EXPECT_TRUE(context.record(id));
    EXPECT_EQ(context.record(ids.at(7))->text, QStringLiteral("changed"));
    context.save();
    EXPECT_EQ(open().record(ids.at(7))->text, QStringLiteral("changed"));
}

TEST_F(Context, FetchesSeeWhatIsNotSaved) {
    auto& context = open();
    const auto kept = newRecord(QStringLiteral("kept"), 10);
    const auto removed = newRecord(QStringLiteral("removed"), 20);
    context.insert(kept);
    context.insert(removed);
    context.save();

    kept->addTag(QStringLiteral("t"));
    kept->text = QStringLiteral("changed");
    context.remove(removed);
    const auto fresh = newRecord(QStringLiteral("fresh changed"), 5);
    context.insert(fresh);
    RecordQuery changed;
    changed.search = QStringLiteral("chang");
    EXPECT_EQ(context.fetch(changed), (QList<RecordPointer>{fresh, kept}));
    EXPECT_EQ(context.count(), 2);
    RecordQuery tagged;
    tagged.tagNames = {QStringLiteral("t")};
    EXPECT_EQ(context.summaries(tagged).value(0).preview, QStringLiteral("changed"));
    EXPECT_EQ(context.record(removed->id), nullptr);

    // A fetch does not save.
    EXPECT_TRUE(context.hasChanges());
    const auto reader = DataContainer::openReadOnly();
    EXPECT_EQ(reader->mainContext().count(), 2);
    EXPECT_TRUE(reader->mainContext().fetch(changed).isEmpty());

    context.rollback();
    EXPECT_FALSE(context.hasChanges());
    EXPECT_EQ(kept->text, QStringLiteral("kept"));
    EXPECT_EQ(texts(context.fetch({})), (QStringList{QStringLiteral("kept"), QStringLiteral("removed")}));
}

TEST_F(Context, TellsWhatASaveWrote) {
    auto& context = open();
    QList<SavedChanges> told;
    QObject::connect(&context, &ModelContext::saved, [&](const SavedChanges& changes) { told.append(changes); });
    const auto a = newRecord(QStringLiteral("a"));
    const auto b = newRecord(QStringLiteral("b"));
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
    const auto record = newRecord(QStringLiteral("said"));
    context.insert(record);
    context.save();
    EXPECT_EQ(record->updatedAt, std::nullopt) << "it is as it was made";
    const auto given = QDateTime::fromMSecsSinceEpoch(1'790'000'000'000, Qt::UTC);
    const std::pair<std::function<void()>, bool> changes[] = {
        {[&] { record->toggleFavorite(); }, true},
        {[&] { record->addTag(QStringLiteral("work")); }, true},
        {[&] { record->text = QStringLiteral("corrected"); }, true},
        {[&] { record->title = QStringLiteral("title"); }, true},
        {[&] { record->markRetryAttempt(); }, false},
        {[&] { record->syncedAt = given.addDays(1); }, false},
        {[&] { record->markMetricsReported(QStringLiteral("m")); }, false},
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
    const auto before = newRecord(QStringLiteral("before"));
    context.insert(before);
    context.save();
    const auto pages = connection->integer("PRAGMA page_count").value_or(0);
    connection->execute("PRAGMA max_page_count = " + std::to_string(pages + 4));

    before->text = QStringLiteral("after");
    const auto large = newRecord(QStringLiteral("large ").repeated(100'000));
    context.insert(large);
    try {
        context.save();
        FAIL() << "saved beyond the limit";
    } catch (const StoreError& error) {
        EXPECT_EQ(error.cause(), StoreError::Cause::diskFull);
        EXPECT_TRUE(error.message().contains(QStringLiteral("Free some space"))) << error.what();
    }
    EXPECT_TRUE(context.hasChanges());
    EXPECT_EQ(DataContainer::openReadOnly()->mainContext().fetch({}).value(0)->text, QStringLiteral("before"));

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
    const std::pair<const char16_t*, qsizetype> cases[] = {{u"1", 2},
                                                           {u"1a2b3", 2},
                                                           {u"1A2B3c", 1},
                                                           {u"1a2b3c4d-0000", 1},
                                                           {u"1a2b3c4d-0000-4000-8000-000000000001", 1},
                                                           {u"f", 1},
                                                           {u"0", 0},
                                                           {u"", 0},
                                                           {u"-", 0},
                                                           {u"1a2x", 0},
                                                           {u"%", 0},
                                                           {u"ffffffff-ffff-ffff-ffff-fffffffffffff", 0}};
    for (const auto& [digits, found] : cases)
        EXPECT_EQ(context.idsBeginningWith(QString::fromUtf16(digits), 10).size(), found)
            << QString::fromUtf16(digits).toStdString();
    EXPECT_EQ(context.idsBeginningWith(QStringLiteral("1"), 1).size(), 1);
}

TEST_F(Context, KeepsSettingsOfEachUser) {
    auto& context = open();
    auto settings = std::make_shared<AppSettings>();
    settings->userId = QStringLiteral("u1");
    settings->selectedLanguages = {QStringLiteral("de"), QStringLiteral("日本語")};
    settings->pushToTalkKeyCode = 0xffff;
    settings->pushToTalkModifiers = 0xffff'ffff'ffff'ffffULL;
    settings->profession = QString(QLatin1String(""));
    context.insert(settings);
    EXPECT_THROW(context.insert(std::make_shared<AppSettings>(static_cast<const AppSettingsFields&>(*settings))),
                 StoreError);
    context.save();
    auto& reopened = open();
    ASSERT_TRUE(reopened.appSettings(QStringLiteral("u1")));
    EXPECT_TRUE(static_cast<const AppSettingsFields&>(*reopened.appSettings(QStringLiteral("u1"))) == *settings);
    EXPECT_FALSE(reopened.appSettings(QStringLiteral("u2")));
}

} // namespace
} // namespace quillo::test
