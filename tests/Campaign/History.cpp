#include "Campaign.h"

#include "Support/Async.h"
#include "Support/CommandLine.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace quillo::test {

namespace {

/// The scripted server's words are its count of the received samples.
QStringList wordsOf(int64_t samples) {
    QStringList words;
    for (int i = 0; i < samples * CampaignSession::wordsPerSecond / samplesPerSecond; ++i)
        words.append(CampaignSession::word(i));
    return words;
}

struct Record {
    QString id;
    QString status;
    QString audioId;
    QStringList words;
};

/// A tenth of a second contains nothing to recognise, so it is enough that transcription was attempted.
bool isDone(const Record& record, const QStringList& wanted) {
    return record.status == u"completed"_qs || (wanted.isEmpty() && record.status == u"unrecognized"_qs);
}

std::vector<Record> historyOf(DesktopSession& session) {
    std::vector<Record> records;
    const auto answer = session.quillo(words(u"history --json --limit all"_qs));
    const auto list = QJsonDocument::fromJson(answer.toUtf8()).array();
    for (const auto& entry : list) {
        const auto object = entry.toObject();
        const auto text = [&](const char* key) { return object.value(QString::fromLatin1(key)).toString(); };
        records.push_back({text("id"), text("status"), text("audio_id"), text("text").split(u' ', Qt::SkipEmptyParts)});
    }
    return records;
}

} // namespace

QStringList Campaign::checkTexts(std::chrono::seconds watchdog) {
    std::vector<Record> records;
    const auto recordsOf = [&](const Expected& expected) {
        std::vector<Record> found;
        for (const auto& record : records) {
            if (record.audioId == expected.recordingId && !m_settledRecords.contains(record.id))
                found.push_back(record);
        }
        return found;
    };
    const auto isThere = [&](const Expected& expected) {
        const auto found = recordsOf(expected);
        const auto wanted = wordsOf(expected.samples);
        return std::ranges::any_of(found, [&](const auto& record) { return isDone(record, wanted); });
    };
    waitUntil(
        [&] {
            records = historyOf(m_session.desktop);
            return std::ranges::all_of(m_expected, isThere);
        },
        watchdog);

    QStringList faults;
    for (const auto& expected : m_expected) {
        const auto blame = [&](const QString& sentence) {
            faults.append(u"run %1, recording %2: %3"_qs.arg(expected.run).arg(expected.recordingId, sentence));
        };
        const auto found = recordsOf(expected);
        const auto wanted = wordsOf(expected.samples);
        if (found.size() != 1) {
            blame(u"%1 records in the history instead of one"_qs.arg(found.size()));
            continue;
        }
        const auto& record = found.front();
        m_settledRecords.insert(record.id);
        if (!isDone(record, wanted))
            blame(u"its text did not arrive; the record is \"%1\""_qs.arg(record.status));
        else if (expected.isExact ? record.words != wanted : record.words.mid(0, wanted.size()) != wanted)
            blame(u"its text is \"%1\" and not \"%2\"%3"_qs.arg(record.words.join(u' '), wanted.join(u' '),
                                                                expected.isExact ? QString() : u" and more"_qs));
    }
    m_expected.clear();
    for (const auto& record : records) {
        if (!m_settledRecords.contains(record.id)) {
            m_settledRecords.insert(record.id);
            faults.append(u"record %1 (\"%2\", %3 words) belongs to no recording"_qs.arg(record.id, record.status)
                              .arg(record.words.size()));
        }
    }
    return faults;
}

} // namespace quillo::test
