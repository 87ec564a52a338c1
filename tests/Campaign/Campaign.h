#pragma once

#include "CampaignSession.h"
#include "Plan.h"
#include "Surroundings.h"
#include "Verdict.h"

#include <QSet>

#include <chrono>
#include <functional>
#include <vector>

namespace quillo::test {

/// The result of a run.
struct RunResult {
    Plan plan;
    QString recordingId; ///< empty: nothing is held
    Verdict verdict;
    QStringList notes;  ///< observations that are not faults
    QStringList faults; ///< the verdict's and others

    [[nodiscard]] QString summary() const;
};

/// Performs runs one after the other in one session.
class Campaign {
public:
    explicit Campaign(uint64_t seed) : m_session(seed) { m_session.makeHome(seed % 2 == 1); }

    /// One dictation with its fault; returns when the fault is removed and the application is idle.
    RunResult run(const Plan& plan);
    /// Waits until every recording of the runs so far has its text in the history without a command. Returns what is
    /// wrong; checks each record once.
    QStringList checkTexts(std::chrono::seconds watchdog);

    CampaignSession& session() { return m_session; }

private:
    struct Moment {
        std::chrono::milliseconds at; ///< after the press
        std::function<void()> action;
    };
    /// What is known about a recording whose text is awaited.
    struct Expected {
        int run = 0;
        QString recordingId; ///< empty: the disk was full before its audio began
        int64_t samples = 0;
        bool isExact = true; ///< the text is that of exactly this many samples; otherwise of at least this many
    };
    struct Observed; ///< positions of the current run's events in the reference

    void prepare(const Plan& plan);
    std::vector<Moment> faultOf(const Plan& plan, Observed& observed);
    void play(std::vector<Moment> moments, Observed& observed);
    void watch(Observed& observed);
    void settle(RunResult& result, Observed& observed);
    void awaitUpload(RunResult& result, Observed& observed);
    void passADay(RunResult& result);
    void compare(RunResult& result, const Observed& observed, const QSet<QString>& known);
    void keepEvidence(const RunResult& result, SampleView held, SampleView reference);
    [[nodiscard]] QSet<QString> recordings() const;
    [[nodiscard]] bool isQuiet(QJsonObject& status);
    void checkSurroundings(RunResult& result, const Observed& observed, const QJsonObject& status);

    CampaignSession m_session;
    Surroundings m_surroundings{m_session};
    std::chrono::nanoseconds m_released{};
    std::vector<Expected> m_expected;
    QSet<QString> m_settledRecords; ///< ids of history records that have been checked
};

} // namespace quillo::test
