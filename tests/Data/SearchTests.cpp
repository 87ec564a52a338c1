#include "StoreFixture.h"

#include <QRandomGenerator>

namespace quillo::test {
namespace {

/// A query that restricts these fields to the values that follow them.
template <class Field, class Value, class... More>
RecordQuery where(Field RecordQuery::*field, const Value& value, const More&... more) {
    RecordQuery query;
    if constexpr (sizeof...(more) > 0)
        query = where(more...);
    query.*field = value;
    return query;
}

class Search : public StoreFixture {
protected:
    Search() {
        container = DataContainer::createInMemory();
        context = &container->mainContext();
    }

    RecordPointer add(const QString& text, qint64 secondsAgo = 0) {
        auto record = newRecord(text, secondsAgo);
        context->insert(record);
        return record;
    }
    [[nodiscard]] bool finds(const QString& search, const RecordPointer& record) const {
        return context->fetch(searchFor(search)).contains(record);
    }

    ModelContext* context;
};

TEST_F(Search, FindsAnyScriptWhateverItsCaseAndDiacritics) {
    const struct {
        const char16_t* text;
        std::vector<const char16_t*> found;
        std::vector<const char16_t*> missed;
    } cases[] = {
        {u"The quick brown fox",
         {u"quick", u"QUICK", u"fox the", u"  bro ", u"the qui", u"t", u"quick, brown!"},
         {u"uick", u"quik", u"quick red", u"bro the"}},
        {u"Grüße aus Łódź, très œuvré", {u"grusse", u"GRÜSSE", u"lodz", u"ŁÓDŹ", u"tres", u"gru"}, {u"grx"}},
        {u"cafe\u0301 re\u0301sume\u0301", {u"café", u"cafe", u"CAFÉ", u"resum"}, {u"cafes"}},
        {u"Здравствуйте, Ёлка", {u"здрав", u"ЗДРАВСТВУЙТЕ", u"елка", u"Ёлк"}, {u"равствуйте"}},
        {u"北京大学的学生", {u"北京", u"大学", u"京", u"生", u"的学生", u"北京大学的学生"}, {u"学大", u"北生", u"東"}},
        {u"今日は東京タワーへ行く", {u"東京", u"タワー", u"ﾀﾜｰ", u"行く", u"は"}, {u"京東", u"タク"}},
        {u"สวัสดีครับ", {u"สวัสดี", u"ครับ"}, {u"ครบั"}},
        {u"안녕하세요 세계", {u"안녕", u"세계"}, {u"녕하"}},
        {u"مَرْحَبًا بالعالم", {u"مرحبا", u"بال"}, {u"عالم"}},
        {u"नमस्ते दुनिया", {u"नमस्ते", u"दुनि"}, {u"मस्ते"}},
        {u"ΑΘΉΝΑ και Σίσυφος", {u"αθηνα", u"σισυφος", u"ΣΊΣΥΦΟΣ"}, {}},
        {u"İstanbul ve ışık", {u"istanbul", u"isik"}, {}},
        {u"release 2.0 costs 5€ 🎉", {u"2.0", u"🎉", u"€", u"5"}, {u"20", u"🎈"}},
        {u"mixed 日本語text here", {u"日本語text", u"本語 here", u"tex"}, {u"ext"}},
        {u"supercalifragilistic", {u"super", u"superc", u"supercalifragilistic"}, {u"supercalifragilistics"}},
    };
    for (const auto& [text, found, missed] : cases) {
        const auto record = add(QString::fromUtf16(text));
        context->save();
        for (const auto* search : found)
            EXPECT_TRUE(finds(QString::fromUtf16(search), record)) << QString::fromUtf16(search).toStdString();
        for (const auto* search : missed)
            EXPECT_FALSE(finds(QString::fromUtf16(search), record)) << QString::fromUtf16(search).toStdString();
    }
}

TEST_F(Search, TakesNothingTheUserTypesForACommand) {
    const auto record = add(u"near words AND or not"_qs);
    context->save();
    for (const auto* search :
         {u"\"", u"words\"", u"words OR", u"NEAR(words", u"words*", u"words AND", u"NOT", u"-words", u"words:",
          u"{words}", u"^words", u"(words", u"'words'; DROP TABLE ZTAG", u"\\words"})
        EXPECT_NO_THROW((void)finds(QString::fromUtf16(search), record)) << QString::fromUtf16(search).toStdString();
    EXPECT_TRUE(finds(u"words* AND \"near"_qs, record));
    EXPECT_FALSE(finds(u"absent OR words"_qs, record));
    // Blank asks for nothing, and a search without any letter finds nothing.
    EXPECT_TRUE(finds(u"  \n"_qs, record));
    EXPECT_FALSE(finds(u"-+?"_qs, record));
    // The marks of tags and favourites cannot be typed.
    record->addTag(u"a"_qs);
    record->isFavorite = true;
    context->save();
    EXPECT_FALSE(finds(QString(QChar(u'\uE000')) + u"61"_qs, record));
    EXPECT_FALSE(finds(QString(QChar(u'\uE001')), record));
    EXPECT_TRUE(finds(u"words "_qs.repeated(5'000), record));
}

TEST_F(Search, CoversTitleApplicationAndTags) {
    const auto record = add(u"text"_qs);
    record->title = u"Überschrift"_qs;
    record->sourceApp = u"LibreOffice"_qs;
    record->addTag(u"Steuer 2026"_qs);
    context->save();
    for (const auto* search : {u"uber", u"libreoff", u"steuer", u"2026 text uberschrift libreoffice"})
        EXPECT_TRUE(finds(QString::fromUtf16(search), record)) << QString::fromUtf16(search).toStdString();
    record->title.reset();
    record->removeTag(u"Steuer 2026"_qs);
    record->text = u"other"_qs;
    context->save();
    for (const auto* search : {u"uber", u"steuer", u"text"})
        EXPECT_FALSE(finds(QString::fromUtf16(search), record)) << QString::fromUtf16(search).toStdString();
}

TEST_F(Search, CombinesEverythingAskedFor) {
    const auto a = add(u"apple pie"_qs, 30);
    const auto b = add(u"apple tart"_qs, 20);
    const auto c = add(u"apple cake"_qs, 10);
    a->setTagNames({u"x"_qs, u"y"_qs});
    b->setTagNames({u"x"_qs});
    c->setTagNames({u"X"_qs});
    b->isFavorite = c->isFavorite = true;
    b->status = RecordStatus::pendingTranscription;
    b->pendingAudioId = u"audio"_qs;
    a->userId = u"other"_qs;
    a->syncedAt = QDateTime::currentDateTimeUtc();
    c->isMeetingMode = true;
    context->save();

    using Q = RecordQuery;
    const std::pair<RecordQuery, QList<RecordPointer>> cases[] = {
        {{}, {c, b, a}},
        {where(&Q::search, u"apple"_qs), {c, b, a}},
        {where(&Q::tagNames, QStringList(u"x"_qs)), {b, a}},
        {where(&Q::tagNames, QStringList{u"x"_qs, u"y"_qs}), {a}},
        {where(&Q::tagNames, QStringList{u"x"_qs, u"z"_qs}), {}},
        {where(&Q::tagNames, QStringList(u""_qs)), {}},
        {where(&Q::favoritesOnly, true), {c, b}},
        {where(&Q::favoritesOnly, true, &Q::search, u"tar"_qs, &Q::tagNames, QStringList(u"x"_qs)), {b}},
        {where(&Q::meetingsOnly, true), {c}},
        {where(&Q::unsyncedOnly, true), {c, b}},
        {where(&Q::userId, u"other"_qs), {a}},
        {where(&Q::statuses, QStringList{RecordStatus::pendingTranscription, RecordStatus::recording}), {b}},
        {where(&Q::statuses, QStringList{RecordStatus::completed, RecordStatus::recording}), {c, a}},
        {where(&Q::pendingAudioId, u"audio"_qs), {b}},
        {where(&Q::clientRecordingId, u"audio"_qs), {}},
        {where(&Q::createdBefore, b->createdAt), {a}},
        {where(&Q::createdAfter, b->createdAt), {c, b}},
        {where(&Q::search, u"a"_qs, &Q::createdAfter, b->createdAt, &Q::createdBefore, c->createdAt), {b}},
        {where(&Q::after, c->id), {b, a}},
        {where(&Q::after, c->id, &Q::search, u"apple"_qs, &Q::limit, 1), {b}},
        {where(&Q::limit, 1, &Q::offset, 2), {a}},
        {where(&Q::limit, 0), {}},
    };
    int index = 0;
    for (const auto& [query, expected] : cases) {
        EXPECT_EQ(context->fetch(query), expected) << index;
        if (query.limit < 0)
            EXPECT_EQ(context->count(query), expected.size()) << index;
        ++index;
    }
}

TEST_F(Search, OrdersByDateWhateverTheOrderOfArrival) {
    // Hundreds of one millisecond, more than have places of their own, with neighbours before and behind.
    const auto earlier = add(u"earlier"_qs, 100);
    for (int i = 0; i < 300; ++i)
        add(u"same %1"_qs.arg(i), 50);
    add(u"later"_qs, 1);
    const auto latest = add(u"latest"_qs);
    add(u"late old"_qs, 60);
    context->save();
    const auto all = texts(context->fetch({}));
    ASSERT_EQ(all.size(), 304);
    EXPECT_EQ(all.first(2), (QStringList{u"latest"_qs, u"later"_qs}));
    EXPECT_EQ(all.last(2), (QStringList{u"late old"_qs, u"earlier"_qs}));
    // A changed date moves it.
    latest->createdAt = earlier->createdAt.addSecs(-1);
    context->save();
    EXPECT_EQ(context->fetch({}).last(), latest);
    EXPECT_TRUE(finds(u"latest"_qs, latest));
    // Paging by key meets each once.
    RecordQuery page;
    page.limit = 7;
    QSet<QUuid> seen;
    for (auto found = context->fetch(page); !found.isEmpty(); found = context->fetch(page)) {
        for (const auto& record : found)
            seen.insert(record->id);
        page.after = found.last()->id;
    }
    EXPECT_EQ(seen.size(), 304);
}

TEST_F(Search, StaysRightThroughRandomChanges) {
    // Against a plain look through the texts.
    QRandomGenerator random(7);
    const QStringList words{u"alpha"_qs, u"beta"_qs, u"gamma"_qs, u"delta"_qs, u"omega"_qs, u"alphabet"_qs};
    const auto some = [&] { return words.at(random.bounded(static_cast<int>(words.size()))); };
    QList<RecordPointer> records;
    for (int round = 0; round < 600; ++round) {
        const int action = records.isEmpty() ? 0 : random.bounded(5);
        if (action == 0) {
            records.append(add(some() + u' ' + some(), random.bounded(1000)));
        } else {
            const auto at = random.bounded(static_cast<int>(records.size()));
            const auto& record = records.at(at);
            if (action == 1)
                record->text = some();
            else if (action == 2)
                record->createdAt = record->createdAt.addMSecs(random.bounded(2000) - 1000);
            else if (action == 3)
                record->title = random.bounded(2) == 0 ? std::nullopt : std::optional(some());
            else {
                context->remove(record);
                records.removeAt(at);
            }
        }
        if (random.bounded(3) == 0)
            context->save();
        const auto word = some().left(random.bounded(1, 9));
        const auto found = context->fetch(searchFor(word));
        const auto expected = std::count_if(records.begin(), records.end(), [&](const RecordPointer& record) {
            const auto all = (record->text + u' ' + record->title.value_or(QString())).split(u' ');
            return std::any_of(all.begin(), all.end(), [&](const QString& each) { return each.startsWith(word); });
        });
        ASSERT_EQ(found.size(), expected) << word.toStdString() << " in round " << round;
        EXPECT_TRUE(std::is_sorted(found.begin(), found.end(), [](const RecordPointer& a, const RecordPointer& b) {
            return a->createdAt > b->createdAt;
        }));
    }
}

} // namespace
} // namespace quillo::test
