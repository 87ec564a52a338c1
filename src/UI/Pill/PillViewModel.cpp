#include "UI/Pill/PillViewModel.h"

#include "UI/Foundation/Texts.h"

namespace quillo {

PillViewModel::PillViewModel(RecordingStore& store, Clock& clock, Translate translate, std::function<bool()> enabled)
    : m_store(store), m_clock(clock), m_translate(std::move(translate)), m_enabled(std::move(enabled)) {
    m_observation = m_store.observeLater(
        [this](const RecordingState& before, const RecordingState& after) { stateChanged(before, after); });
    stateChanged(RecordingState(), m_store.state());
    Texts::follow(this, [this] { present(m_store.state()); });
}

PillViewModel::~PillViewModel() = default;

bool PillViewModel::isActive() const {
    return m_shown.phase == PillPhase::connecting || m_shown.phase == PillPhase::recording ||
           m_shown.phase == PillPhase::recordingOffline;
}

void PillViewModel::setHovering(bool hovering) {
    if (m_store.state().isHovering != hovering)
        m_store.send(action::SetHovering{hovering});
}

void PillViewModel::start() { m_store.send(action::StartRecording{}); }
void PillViewModel::stop() { m_store.send(action::StopRecording{}); }
void PillViewModel::cancel() { m_store.send(action::CancelRecording{}); }

void PillViewModel::dismiss() {
    m_dismissal.reset();
    m_hint.reset();
    if (m_store.state().status.error())
        m_store.send(action::Reset{});
    else if (m_store.state().savedToHistoryHintVisible)
        m_store.send(action::HideSavedToHistory{});
    present(m_store.state());
}

void PillViewModel::stateChanged(const RecordingState& before, const RecordingState& after) {
    if (after.savedToHistoryHintVisible)
        m_hint = after.savedToHistoryHintMessage.value_or(m_translate(QStringLiteral("pill.savedToHistory")));
    if (after.status.isActive())
        m_hint.reset();
    scheduleDismissal(before, after);

    const float level = after.status.isActive() ? std::max(after.audioLevel, after.systemAudioLevel) : 0.0F;
    if (level != m_level) {
        m_level = level;
        Q_EMIT levelChanged();
    }
    if (before.isHovering != after.isHovering)
        Q_EMIT hoveringChanged();
    present(after);
}

void PillViewModel::present(const RecordingState& state) {
    auto next = presentPill(state, m_translate);
    if (m_hint && (next.phase == PillPhase::hidden || next.phase == PillPhase::hovering))
        next = PillPresentation{.phase = PillPhase::hint, .text = m_hint->simplified()};

    // Check the setting only when the pill would appear, not thirty times a second during an animation.
    const bool wanted = next.phase != PillPhase::hidden;
    const bool visible = wanted && (m_visible || !m_enabled || m_enabled());
    if (wanted && next != m_shown) {
        m_shown = std::move(next);
        Q_EMIT presentationChanged();
    }
    if (visible != m_visible) {
        m_visible = visible;
        Q_EMIT visibleChanged();
    }
    if (!m_visible || !state.status.isActive())
        m_elapsedTick.reset();
    else if (!m_elapsedTick)
        updateElapsed();
}

/// Messages time out unless the pointer is over them.
void PillViewModel::scheduleDismissal(const RecordingState& before, const RecordingState& after) {
    const auto* error = after.status.error();
    if (!error && !m_hint) {
        m_dismissal.reset();
        return;
    }
    if (after.isHovering) {
        m_dismissal.reset();
        return;
    }
    const bool raised =
        before.status != after.status ||
        (after.savedToHistoryHintVisible &&
         (!before.savedToHistoryHintVisible || before.savedToHistoryHintMessage != after.savedToHistoryHintMessage));
    if (m_dismissal && !raised)
        return;
    auto duration = hintDuration;
    if (error)
        duration = error->is<RecordingError::Cancelled>() ? cancelledDuration : errorDuration;
    if (!raised)
        duration = afterHoverDuration;
    m_dismissal = m_clock.callLater(duration, [this] { dismiss(); });
}

void PillViewModel::updateElapsed() {
    const auto start = m_store.state().startTime;
    const auto passed = start ? std::max<qint64>(0, start->msecsTo(m_clock.wallTime())) : 0;
    if (const auto text = start ? elapsedText(passed / 1000) : QString(); text != m_elapsed) {
        m_elapsed = text;
        Q_EMIT elapsedChanged();
    }
    // Fire at the next full second, not one second from now: otherwise the display sometimes skips a second.
    m_elapsedTick = m_clock.callLater(std::chrono::milliseconds(1000 - passed % 1000), [this] { updateElapsed(); });
}

} // namespace quillo
