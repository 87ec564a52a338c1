#include "Campaign.h"

#include "Support/Async.h"

#include <QDir>
#include <QFile>

#include <algorithm>

namespace quillo::test {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

/// A press within this time after a release counts as the second tap of a double tap.
constexpr auto doubleTap = 450ms;
/// Covers the 12 s after which the application gives up on a silent server, and its wait for the last word.
constexpr auto settleLimit = 60s;
constexpr auto uploadLimit = 30s;

// How many samples may legitimately be missing.
/// A chunk is 100 ms, and goes to the disk when it is full.
constexpr int64_t chunk = samplesPerSecond / 10;
/// Between the reference and the application's disk: portions of 10 ms, and the scheduling of a machine that is busy
/// with more than the campaign.
constexpr int64_t deviceLatency = samplesPerSecond * 100 / 1000;
/// From the key to the first sample. Usually some 10 ms, which is reported; up to this much on a busy machine right
/// after the start.
constexpr int64_t startLimit = samplesPerSecond * 600 / 1000;

/// An error is shown for 4 s; the log must have been watched within this time to see it.
constexpr auto messageTime = 1s;

const QString endOfDictation = u"🏁 Recording END"_qs;

QString milliText(int64_t samples) {
    return QString::number(static_cast<double>(samples) * 1000 / samplesPerSecond, 'f', 0);
}

} // namespace

struct Campaign::Observed {
    int64_t pressed = 0;
    std::chrono::nanoseconds pressedAt{};
    int64_t released = 0;
    std::optional<int64_t> killed;        ///< the application
    std::optional<int64_t> ended;         ///< the application ended on its own
    std::optional<int64_t> gaveUp;        ///< the application ended the dictation and notified the user
    std::optional<int64_t> seam;          ///< the sound server ended
    std::optional<int64_t> woken;         ///< the headset began to deliver
    std::optional<int64_t> busGone;       ///< the session bus was killed
    qint64 logBegin = 0;                  ///< the end of the log before the run
    std::chrono::nanoseconds watchedAt{}; ///< the latest look at the log
    std::optional<QJsonObject> atEnd;     ///< the status right after the dictation's end; empty when seen too late
    int64_t trappedBefore = 0;
};

QString RunResult::summary() const {
    auto text = u"%1: delivered %2, held %3, lost %4; begins %5 ms after the key, ends %6 ms %7"_qs.arg(plan.summary())
                    .arg(verdict.delivered)
                    .arg(verdict.held)
                    .arg(verdict.lost)
                    .arg(milliText(verdict.startDelay), milliText(std::abs(verdict.endMargin)),
                         verdict.endMargin < 0 ? u"before the end"_qs : u"behind the end"_qs);
    for (const auto& note : notes)
        text += u" (%1)"_qs.arg(note);
    for (const auto& fault : faults)
        text += u"\n    FAULT: "_qs + fault;
    return text;
}

QSet<QString> Campaign::recordings() const {
    QSet<QString> names;
    const auto files = QDir(m_session.recordingFolder()).entryList({u"*.pcm"_qs}, QDir::Files);
    for (const auto& file : files)
        names.insert(file.chopped(4));
    return names;
}

bool Campaign::isQuiet(QJsonObject& status) {
    status = m_session.desktop.status();
    const auto word = status.value(u"status"_qs).toString();
    return word == u"idle"_qs || word == u"error"_qs;
}

void Campaign::prepare(const Plan& plan) {
    m_session.keepSounding();
    const CampaignSession::Start start{.movableClock = plan.fault == Fault::moveClock || plan.fault == Fault::dayAway,
                                       .german = plan.situation.german,
                                       .slowKeyring = plan.situation.slowKeyring};
    if (m_session.isApplicationRunning() && (start.slowKeyring || m_session.lastStart() != start))
        m_session.endApplication();
    if (!m_session.isApplicationRunning())
        m_session.startApplication(start);
    m_surroundings.begin(plan.situation);
    waitUntil([&] { return monotonicNow() - m_released > doubleTap; });
}

std::vector<Campaign::Moment> Campaign::faultOf(const Plan& plan, Observed& observed) {
    auto& proxy = m_session.proxy();
    const auto killApplication = [&] {
        if (!m_session.isApplicationRunning())
            return;
        observed.killed = m_session.killApplication();
    };
    const auto heal = [&] { proxy.heal(); };
    switch (plan.fault) {
    case Fault::none:
        return {};
    case Fault::killConnecting:
        return {{-50ms, [&] { proxy.stallAnswers(true); }}, {plan.at, killApplication}, {plan.healed, heal}};
    case Fault::killRecording:
        return {{plan.at, killApplication}};
    case Fault::killProcessing:
        return {{plan.hold, [&] { proxy.stallAnswers(true); }}, {plan.at, killApplication}, {plan.healed, heal}};
    case Fault::killUploading:
    case Fault::cutUpload:
        return {{plan.at, [&] {
                     proxy.cut(plan.ending);
                     observed.trappedBefore = proxy.counts().trapped;
                     // An upload to be interrupted by a kill is held until then.
                     proxy.set({.traffic = FaultProxy::Traffic::tls,
                                .bytes = plan.bytes,
                                .ending = plan.fault == Fault::cutUpload ? std::optional(plan.ending) : std::nullopt});
                 }}};
    case Fault::killServer:
        return {{plan.at,
                 [&] {
                     proxy.refuse(true);
                     m_session.killServer();
                 }},
                {plan.healed, [&] {
                     m_session.startServer();
                     proxy.refuse(false);
                 }}};
    case Fault::cutConnection:
        return {
            {plan.at,
             [&] { proxy.set({.traffic = FaultProxy::Traffic::plain, .bytes = plan.bytes, .ending = plan.ending}); }},
            {plan.healed, heal}};
    case Fault::stallConnection:
        return {{plan.at, [&] { proxy.stall(true); }}, {plan.healed, [&] {
                                                            proxy.cut(plan.ending);
                                                            proxy.heal();
                                                        }}};
    case Fault::refuseConnection:
        return {{plan.at, [&] { proxy.refuse(true); }}, {plan.healed, heal}};
    case Fault::killSound:
        return {{plan.at,
                 [&] {
                     m_session.killSoundServer();
                     observed.seam = m_session.reference.position();
                 }},
                {plan.healed, [&] { m_session.startSoundServer(); }}};
    case Fault::fillDisk:
        return {{plan.at, [&] { m_session.disk().fillUpTo(plan.bytes); }},
                {plan.healed, [&] { m_session.disk().empty(); }}};
    case Fault::moveClock:
        return {{plan.at, [&] { m_session.moveClock(plan.clockShift); }},
                {plan.healed, [&] { m_session.moveClock(0s); }}};
    case Fault::killBus:
        return {{plan.at, [&] { observed.busGone = m_session.killBus(); }}};
    case Fault::dayAway:
        return {{plan.at, [&] { proxy.refuse(true); }}};
    }
    return {};
}

/// Records the time when the application ends a dictation or itself without a command, and what it then shows.
void Campaign::watch(Observed& observed) {
    const auto before = std::exchange(observed.watchedAt, monotonicNow());
    if (!observed.atEnd && m_session.isApplicationRunning() && m_session.isLogged(endOfDictation, observed.logBegin))
        observed.atEnd = monotonicNow() - before < messageTime ? m_session.desktop.status() : QJsonObject();
    if (!observed.killed && !observed.ended && !m_session.isApplicationRunning())
        observed.ended = m_session.reference.position();
    if (!observed.gaveUp && m_session.isLogged(endOfDictation + u".*reason=failed"_qs, observed.logBegin))
        observed.gaveUp = m_session.reference.position();
}

void Campaign::play(std::vector<Moment> moments, Observed& observed) {
    std::ranges::stable_sort(moments, {}, &Moment::at);
    const auto start = monotonicNow() + 50ms - std::min(moments.front().at, 0ms);
    for (const auto& moment : moments) {
        waitUntil(
            [&] {
                watch(observed);
                return monotonicNow() >= start + moment.at;
            },
            60s);
        moment.action();
    }
}

RunResult Campaign::run(const Plan& plan) {
    RunResult result{.plan = plan};
    prepare(plan);
    const auto known = recordings();
    Observed observed;
    observed.logBegin = m_session.logEnd();
    auto moments = faultOf(plan, observed);
    moments.push_back({0ms, [&] {
                           observed.pressed = m_session.reference.position();
                           observed.pressedAt = monotonicNow();
                           m_surroundings.pressHoldKey();
                       }});
    moments.push_back({plan.hold, [&] {
                           observed.released = m_session.reference.position();
                           m_surroundings.releaseHoldKey();
                           m_released = monotonicNow();
                       }});
    if (plan.situation.slowHeadset)
        moments.push_back({Situation::headsetDelay, [&] {
                               observed.woken = m_session.reference.position();
                               m_surroundings.wakeHeadset();
                           }});
    play(std::move(moments), observed);
    settle(result, observed);
    compare(result, observed, known);
    return result;
}

/// The queue sends the recording without a command, and the trap catches it.
void Campaign::awaitUpload(RunResult& result, Observed& observed) {
    const auto trapped = [&] { return m_session.proxy().counts().trapped > observed.trappedBefore; };
    if (!waitUntil(trapped, uploadLimit))
        result.notes.append(u"the upload was over before"_qs);
    if (result.plan.fault == Fault::killUploading) {
        observed.killed = m_session.killApplication();
    }
}

void Campaign::settle(RunResult& result, Observed& observed) {
    if (result.plan.fault == Fault::killUploading || result.plan.fault == Fault::cutUpload)
        awaitUpload(result, observed);
    if (result.plan.fault != Fault::dayAway)
        m_session.proxy().heal();
    m_session.disk().empty();
    m_session.moveClock(0s);
    if (!observed.killed) {
        // Read it from the log, which works even when the bus is gone.
        const auto over = [&] {
            watch(observed);
            return !m_session.isApplicationRunning() || m_session.isLogged(endOfDictation, observed.logBegin);
        };
        if (!waitUntil(over, settleLimit))
            result.faults.append(u"the dictation does not end"_qs);
    }
    m_session.wakeKeyring();
    if (observed.busGone) {
        // Without the bus the application cannot be reached, and usually exits as desktop programs do.
        const auto leaving = endOfDictation + u".*reason=cancelled\\(quit"_qs;
        if (!observed.ended && m_session.isLogged(leaving, observed.logBegin))
            observed.ended = m_session.reference.position();
        if (observed.ended)
            result.notes.append(u"the application ended with the session bus"_qs);
        m_session.endApplication();
        m_session.startBus();
    } else if (observed.ended) {
        result.faults.append(u"the application ended by itself"_qs);
    }
    if (!m_session.isApplicationRunning())
        m_session.startApplication({.german = m_session.isGerman()});
    QJsonObject status;
    if (!waitUntil([&] { return isQuiet(status); }, settleLimit))
        result.faults.append(u"the application does not come to rest"_qs);
    checkSurroundings(result, observed, status);
    if (result.plan.fault == Fault::dayAway)
        passADay(result);
    if (m_session.hasAccount() && !waitUntil([&] { return m_session.isSignedIn(); }, settleLimit))
        result.faults.append(u"the account is gone"_qs);
}

/// Each start asks the server that is not there; none may be an attempt that counts.
void Campaign::passADay(RunResult& result) {
    for (const auto time : {9h, 17h, 26h}) {
        m_session.moveClock(time);
        m_session.endApplication();
        const auto begun = m_session.logEnd();
        m_session.startApplication({.movableClock = true, .german = m_session.isGerman()});
        if (!waitUntil([&] { return m_session.isLogged(u"could not be sent"_qs, begun); }, uploadLimit))
            result.faults.append(u"the queue did not ask for the server"_qs);
    }
    m_session.proxy().heal();
    m_session.moveClock(0s);
}

void Campaign::checkSurroundings(RunResult& result, const Observed& observed, const QJsonObject& status) {
    m_surroundings.end();
    const bool interrupted = observed.killed || observed.ended || observed.busGone;
    const auto lastRun = status.value(u"lastRun"_qs).toObject();
    result.faults += m_surroundings.check(lastRun, interrupted);
    const auto shown = observed.atEnd.value_or(status);
    result.faults += m_surroundings.checkMessage(shown);
    const auto reason = lastRun.value(u"reason"_qs).toString();
    if (!interrupted)
        result.notes.append(u"%1 %2"_qs.arg(reason, lastRun.value(u"delivery"_qs).toString()));
    if (!interrupted && reason.startsWith(u"failed") && !shown.isEmpty() &&
        shown.value(u"message"_qs).toString().isEmpty())
        result.faults.append(u"it ended as \"%1\" and said nothing"_qs.arg(reason));
}

void Campaign::compare(RunResult& result, const Observed& observed, const QSet<QString>& known) {
    const auto fresh = recordings() - known;
    Samples held;
    if (!fresh.isEmpty()) {
        result.recordingId = *fresh.begin();
        held = readSamples(m_session.recordingFolder() + u'/' + result.recordingId + u".pcm"_qs);
        if (held.empty())
            result.recordingId.clear(); // a file without a sample is not a recording
    }
    if (fresh.size() > 1)
        result.faults.append(u"%1 recordings instead of one: %2"_qs.arg(fresh.size()).arg(fresh.values().join(u' ')));

    // The search begins before the press, to detect misplaced samples.
    const auto begin = std::max<int64_t>(0, observed.pressed - 2 * samplesPerSecond);
    const auto reference = m_session.reference.read(begin, m_session.reference.position());
    auto ended = observed.released;
    Bounds bounds{startLimit, 0, deviceLatency};
    if (observed.killed) {
        ended = std::min(ended, *observed.killed);
        bounds.end = std::max<int64_t>(0, ended - (*observed.killed - chunk - deviceLatency));
    }
    // Desktop programs exit in order when the bus ends, so nothing is in flight.
    if (observed.busGone && *observed.busGone < ended) {
        ended = *observed.busGone;
        bounds.end = deviceLatency;
    }
    // What the application does without a command is noticed late rather than early.
    // A headset that is slow must be waited for.
    if (observed.gaveUp && *observed.gaveUp < ended && !observed.woken) {
        ended = *observed.gaveUp;
        bounds.end = chunk;
    }
    if (observed.gaveUp && *observed.gaveUp < observed.released)
        result.notes.append(u"it ended the dictation by itself %1 ms after the key"_qs.arg(
            milliText(*observed.gaveUp - observed.pressed)));
    if (observed.seam && *observed.seam < ended) {
        ended = *observed.seam;
        bounds.end = deviceLatency;
    }
    const auto refusedAt = std::chrono::nanoseconds(m_session.disk().budget().audioRefusedAt.load());
    const bool isRefused = result.plan.fault == Fault::fillDisk && refusedAt > 0ns;
    const auto said = ended;
    if (isRefused) {
        // The chunk that the disk refuses began earlier.
        ended = std::min(ended, observed.pressed + (refusedAt - observed.pressedAt) * samplesPerSecond / 1s);
        bounds.end = chunk + deviceLatency;
    }
    Moments moments{observed.woken.value_or(observed.pressed) - begin, ended - begin, {}};
    if (observed.seam)
        moments.seam = *observed.seam - begin;
    result.verdict = judge(align(held, reference, 0, reference.size()), held, moments, bounds);
    result.faults += result.verdict.faults;
    // Audio that the disk did not take exists only in the text, because the server received it.
    if (isRefused)
        m_expected.push_back({result.plan.run, result.recordingId, said - observed.pressed - startLimit, false});
    else if (!result.recordingId.isEmpty())
        m_expected.push_back({result.plan.run, result.recordingId, static_cast<int64_t>(held.size()), true});
    if (!result.faults.isEmpty())
        keepEvidence(result, held, reference);
}

void Campaign::keepEvidence(const RunResult& result, SampleView held, SampleView reference) {
    const auto folder = m_session.desktop.path(u"run-%1"_qs.arg(result.plan.run));
    QDir().mkpath(folder);
    writeSamples(folder + u"/held.pcm"_qs, held);
    writeSamples(folder + u"/reference.pcm"_qs, reference);
    QFile::copy(m_session.desktop.logFile(), folder + u"/quillo-speech.log"_qs);
}

} // namespace quillo::test
