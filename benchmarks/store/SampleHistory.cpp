#include "SampleHistory.h"

#include <array>
#include <cmath>

namespace quillo::figures {

namespace {

enum Script { english, german, russian, chinese, japanese, arabic };

constexpr std::array common{u"the",     u"to",     u"and",    u"of",      u"we",     u"that",    u"is",       u"for",
                            u"meeting", u"it",     u"on",     u"with",    u"please", u"this",    u"be",       u"have",
                            u"send",    u"report", u"will",   u"can",     u"team",   u"about",   u"tomorrow", u"time",
                            u"project", u"would",  u"review", u"release", u"call",   u"question"};
constexpr std::array syllables{u"ba", u"de", u"fi",  u"go",  u"lu",  u"mer", u"nat", u"or", u"pre", u"qui",
                               u"ro", u"st", u"ton", u"ver", u"wen", u"xi",  u"ing", u"ed", u"con", u"al"};
constexpr std::array cyrillic{u"при", u"вет", u"до", u"мо", u"сто", u"на", u"пе", u"ре", u"за", u"ко",
                              u"ва",  u"ни",  u"е",  u"ом", u"про", u"бу", u"ть", u"ся", u"ли", u"жа"};
constexpr std::array apps{u"Firefox", u"Thunderbird", u"Visual Studio Code", u"LibreOffice Writer",
                          u"Slack",   u"Zoom",        u"Telegram",           u"Konsole"};

/// The word with this frequency rank.
template <size_t N>
QString composed(const std::array<const char16_t*, N>& parts, int rank) {
    QString word;
    for (auto rest = static_cast<size_t>(rank) + N; rest > 0; rest /= N)
        word += QString::fromUtf16(parts[rest % N]);
    return word;
}

} // namespace

int SampleHistory::rank(int words) {
    // Frequency falls with rank as 1/rank.
    std::uniform_real_distribution<double> uniform(0, std::log(words));
    return static_cast<int>(std::exp(uniform(m_random))) - 1;
}

QString SampleHistory::word(int script) {
    switch (script) {
    case russian:
        return composed(cyrillic, rank(30'000));
    case chinese:
        return QString(QChar(0x4e00 + rank(3'000) * 7 % 20'000));
    case japanese:
        return rank(10) < 4 ? QString(QChar(0x3042 + rank(80))) : QString(QChar(0x4e00 + rank(2'000) * 7 % 20'000));
    case arabic:
        return QString(QChar(0x0627 + rank(20))) + QChar(0x0628 + rank(18)) + QChar(0x0641 + rank(9)) +
               QChar(0x0628 + rank(18));
    default: {
        const int place = rank(40'000);
        return place < static_cast<int>(common.size()) ? QString::fromUtf16(common[static_cast<size_t>(place)])
                                                       : composed(syllables, place);
    }
    }
}

QString SampleHistory::text(int script, int words) {
    const bool isSpaced = script != chinese && script != japanese;
    QString result;
    for (int i = 0; i < words; ++i)
        result += word(script) + (isSpaced ? QStringLiteral(" ") : i % 12 == 11 ? QStringLiteral("。") : QString());
    if (script == german)
        result += QStringLiteral("über Größe");
    return result;
}

RecordPointer SampleHistory::next() {
    const auto pick = [this](int below) { return std::uniform_int_distribution<int>(0, below - 1)(m_random); };
    const int draw = pick(100);
    const int script = draw < 55   ? english
                       : draw < 65 ? german
                       : draw < 80 ? russian
                       : draw < 90 ? chinese
                       : draw < 95 ? japanese
                                   : arabic;
    const bool isMeeting = pick(100) == 0;
    auto record = std::make_shared<TranscriptionRecord>(QStringLiteral("user"), QString(), QStringLiteral("session"));
    record->createdAt = QDateTime::fromMSecsSinceEpoch(1'500'000'000'000 + m_made * 600'000 + pick(600'000), Qt::UTC);
    record->text = text(script, isMeeting ? 2'000 + pick(4'000) : 10 + pick(70));
    record->wordCount = countWords(record->text);
    record->sourceApp = QString::fromUtf16(apps[static_cast<size_t>(pick(apps.size()))]);
    record->languageDetected = QStringLiteral("en");
    record->durationMs = record->wordCount * 400;
    record->isFavorite = pick(200) == 0;
    record->addTag(*record->sourceApp);
    if (m_made % 10'000 == 17)
        record->addTag(QStringLiteral("seldom"));
    if (isMeeting) {
        record->isMeetingMode = true;
        record->setMeetingSegments(
            QList<MeetingSegment>(200, {QStringLiteral("s"), QStringLiteral("Speaker"), record->text.left(100), 1, 2}));
    }
    // A word that occurs in one record only, for the rarest search.
    if (m_made == 1'234)
        record->text += QStringLiteral(" zyzzyva");
    ++m_made;
    return record;
}

} // namespace quillo::figures
