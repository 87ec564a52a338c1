#pragma once

#include "UI/Foundation/UserInterfaceHooks.h"
#include "UI/Welcome/SpeechDetector.h"

#include <QObject>
#include <QStringList>

namespace quillo {

/// Lets the user choose a microphone and shows its live level. Every started test is stopped, at the latest by the
/// destructor, unless it ended with a failure. Main thread only.
class MicrophoneTest final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QStringList choices READ choices NOTIFY choicesChanged)
    Q_PROPERTY(int current READ current NOTIFY currentChanged)
    Q_PROPERTY(QString phase READ phase NOTIFY changed)
    Q_PROPERTY(QString reason READ reason NOTIFY changed)
    Q_PROPERTY(bool overdue READ isOverdue NOTIFY changed)
    Q_PROPERTY(float level READ level NOTIFY levelChanged)

public:
    enum class Phase { off, listening, heard, failed };
    /// How long to wait for speech before advising the user what to check.
    static constexpr std::chrono::seconds patience{6};

    /// The references must outlive the test.
    MicrophoneTest(const UserInterfaceHooks& hooks, Clock& clock);
    ~MicrophoneTest() override;

    /// The names; the first is the system's default.
    [[nodiscard]] QStringList choices() const;
    /// The chosen row.
    [[nodiscard]] int current() const;
    /// "off", "listening", "heard" or "failed".
    [[nodiscard]] QString phase() const;
    /// The words of a failure; may be empty.
    [[nodiscard]] QString reason() const;
    [[nodiscard]] bool isOverdue() const { return m_isOverdue; }
    [[nodiscard]] float level() const { return m_level; }

    /// Looks for microphones and listens to the chosen one.
    Q_INVOKABLE void begin();
    void end();
    /// Stores the choice of `row` and listens to it when a test runs or has failed.
    Q_INVOKABLE void select(int row);

Q_SIGNALS:
    void choicesChanged();
    void currentChanged();
    void changed();
    void levelChanged();

private:
    void listMicrophones();
    void start();
    void stop();
    void hear(float level);
    void fail(const UserMessage& reason);

    const UserInterfaceHooks& m_hooks;
    Clock& m_clock;
    InterfaceChoices m_choices;
    Phase m_phase = Phase::off;
    quint64 m_run = 0; ///< distinguishes the answers of an earlier test from those of the running one
    UserMessage m_reason;
    bool m_isOverdue = false;
    float m_level = 0;
    SpeechDetector m_detector;
    Clock::TimerHandle m_overdue;
};

} // namespace quillo
