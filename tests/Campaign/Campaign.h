#pragma once

#include "CampaignSession.h"
#include "Plan.h"
#include "Verdict.h"

#include <QSet>

#include <chrono>
#include <functional>
#include <vector>

namespace quillo::test {

/// What came of a run.
struct RunResult {
    Plan plan;
    QString recordingId; ///< empty: nothing is held
    Verdict verdict;
    QStringList notes;  ///< what was observed and is no fault
    QStringList faults; ///< the verdict's and others

    [[nodiscard]] QString summary() const;
};

/// Runs, one after the other, in one session.
class Campaign {
public:
    explicit Campaign(uint64_t seed) : m_session(seed) {}

    /// One dictation with its fault, until everything is mended and the application has nothing to do any more.
    RunResult run(const Plan& plan);
    /// Waits until every recording of the runs until now has its text in the history, by itself. Returns what is wrong;
    /// what was looked at is not looked at again.
    QStringList checkTexts(std::chrono::seconds watchdog);

    CampaignSession& session() { return m_session; }

private:
    struct Moment {
        std::chrono::milliseconds at; ///< after the press
        std::function<void()> action;
    };
    /// What is known of a recording whose text is awaited.
    struct Expected {
        int run = 0;
        QString recordingId; ///< empty: the disk was full before its audio began
        int64_t samples = 0;
        bool isExact = true; ///< the text is that of so many samples; else of so many or some more
    };
    struct Observed; ///< where in the reference things happened in the current run

    void prepare(const Plan& plan);
    std::vector<Moment> faultOf(const Plan& plan, Observed& observed);
    void play(std::vector<Moment> moments, Observed& observed);
    void watch(Observed& observed);
    void settle(RunResult& result, Observed& observed);
    void awaitUpload(RunResult& result, Observed& observed);
    void compare(RunResult& result, const Observed& observed, const QSet<QString>& known);
    void keepEvidence(const RunResult& result, SampleView held, SampleView reference);
    [[nodiscard]] QSet<QString> recordings() const;
    [[nodiscard]] bool isQuiet();

    CampaignSession m_session;
    std::chrono::nanoseconds m_released{};
    std::vector<Expected> m_expected;
    QSet<QString> m_settledRecords; ///< ids of history records that were looked at
};

} // namespace quillo::test
