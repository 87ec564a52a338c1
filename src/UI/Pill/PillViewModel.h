#pragma once

#include "Concurrency/Clock.h"
#include "Features/Recording/RecordingStore.h"
#include "UI/Pill/PillPresentation.h"

#include <QObject>

namespace quillo {

/// The floating pill as properties. Its methods only send actions.
///
/// No timer runs while the pill is hidden. When the pill disappears, the properties keep their last values, so that it
/// fades out unchanged. Main thread only.
class PillViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool visible READ isVisible NOTIFY visibleChanged)
    Q_PROPERTY(QString phase READ phase NOTIFY presentationChanged)
    Q_PROPERTY(QString text READ text NOTIFY presentationChanged)
    Q_PROPERTY(bool transcript READ isTranscript NOTIFY presentationChanged)
    Q_PROPERTY(QString targetName READ targetName NOTIFY presentationChanged)
    Q_PROPERTY(bool handsOff READ isHandsOff NOTIFY presentationChanged)
    Q_PROPERTY(bool active READ isActive NOTIFY presentationChanged)
    Q_PROPERTY(bool hovering READ isHovering NOTIFY hoveringChanged)
    Q_PROPERTY(QString elapsed READ elapsed NOTIFY elapsedChanged)
    Q_PROPERTY(float level READ level NOTIFY levelChanged)

public:
    /// How long messages stay if the pointer is not over them.
    static constexpr std::chrono::milliseconds errorDuration{4000};
    static constexpr std::chrono::milliseconds cancelledDuration{1500};
    static constexpr std::chrono::milliseconds hintDuration{3000};
    /// How long a message stays after the pointer has left it.
    static constexpr std::chrono::milliseconds afterHoverDuration{1200};

    /// `enabled` says whether the user wants the pill; it is called each time the pill would appear.
    PillViewModel(RecordingStore& store, Clock& clock, Translate translate, std::function<bool()> enabled);
    ~PillViewModel() override;

    [[nodiscard]] bool isVisible() const { return m_visible; }
    [[nodiscard]] QString phase() const { return phaseName(m_shown.phase); }
    [[nodiscard]] QString text() const { return m_shown.text; }
    [[nodiscard]] bool isTranscript() const { return m_shown.isTranscript; }
    [[nodiscard]] QString targetName() const { return m_shown.targetName; }
    [[nodiscard]] bool isHandsOff() const { return m_shown.isHandsOff; }
    /// Whether a recording runs, which can be stopped and cancelled.
    [[nodiscard]] bool isActive() const;
    [[nodiscard]] bool isHovering() const { return m_store.state().isHovering; }
    /// Time since the recording started; empty when none runs.
    [[nodiscard]] QString elapsed() const { return m_elapsed; }
    /// The larger of the two audio levels, 0 to 1.
    [[nodiscard]] float level() const { return m_level; }

    Q_INVOKABLE void setHovering(bool hovering);
    Q_INVOKABLE void start();
    Q_INVOKABLE void stop();
    Q_INVOKABLE void cancel();
    /// Dismisses a hint or an error; does nothing in other phases.
    Q_INVOKABLE void dismiss();

Q_SIGNALS:
    void visibleChanged();
    void presentationChanged();
    void hoveringChanged();
    void elapsedChanged();
    void levelChanged();

private:
    void stateChanged(const RecordingState& before, const RecordingState& after);
    void present(const RecordingState& state);
    void scheduleDismissal(const RecordingState& before, const RecordingState& after);
    void updateElapsed();

    RecordingStore& m_store;
    Clock& m_clock;
    Translate m_translate;
    std::function<bool()> m_enabled;
    PillPresentation m_shown;
    /// The hint on display, kept here because the end of the recording clears it from the state at once.
    std::optional<QString> m_hint;
    bool m_visible = false;
    float m_level = 0;
    QString m_elapsed;
    Clock::TimerHandle m_dismissal;
    Clock::TimerHandle m_elapsedTick;
    Observation m_observation;
};

} // namespace quillo
