#include "Features/Recording/RecordingState.h"

#include "Core/Overloaded.h"

namespace quillo {

RecordingState::Status::Status() : m_phase(Idle{}) {}
RecordingState::Status::Status(const Status&) = default;
RecordingState::Status::Status(Status&&) noexcept = default;
RecordingState::Status& RecordingState::Status::operator=(const Status&) = default;
RecordingState::Status& RecordingState::Status::operator=(Status&&) noexcept = default;
RecordingState::Status::~Status() = default;
bool RecordingState::Status::operator==(const Status&) const = default;

QString RecordingState::Status::description() const {
    return std::visit(
        Overloaded{
            [](const RecordingError& error) {
                const auto key = error.messageKey();
                return QStringLiteral("error(%1)").arg(key.isEmpty() ? QStringLiteral("unknown") : key.mid(6));
            },
            [](const Idle&) { return QStringLiteral("idle"); },
            [](const Connecting&) { return QStringLiteral("connecting"); },
            [](const Recording&) { return QStringLiteral("recording"); },
            [](const RecordingOffline&) { return QStringLiteral("recordingOffline"); },
            [](const Processing&) { return QStringLiteral("processing"); },
        },
        m_phase);
}

PillState RecordingState::pillState() const {
    if (const auto* error = status.error())
        return PillVisualState::Error{error->userMessage()};
    if (status.isActive())
        return PillVisualState::Recording{std::max(audioLevel, systemAudioLevel), partialText};
    if (status.is<Processing>()) {
        if (commandStatusMessage)
            return PillVisualState::ProcessingCommand{*commandStatusMessage};
        return PillVisualState::Processing{};
    }
    if (isHovering)
        return PillVisualState::Hovering{};
    return PillVisualState::Idle{};
}

} // namespace quillo
