#include "Transport/MeetingProtocol.h"

#include "Foundation/Log.h"
#include "Transport/MeetingMessages.h"

#include <algorithm>

namespace quillo::server {

MeetingProtocol::MeetingProtocol(MeetingServices services, Send send, Post post)
    : m_services(std::move(services)), m_send(std::move(send)), m_post(std::move(post)) {
    if (m_services.tasks)
        m_recording = std::make_unique<MeetingRecording>(m_services.tasks, m_services.work);
}

void MeetingProtocol::started(const message::StartSession& start) {
    if (start.isMeeting)
        activate(start.audioSources, std::nullopt);
}

void MeetingProtocol::handle(const message::SwitchToMeeting& change) {
    if (isMeeting())
        m_send(errorMessage("MEETING_EXISTS", "The session is a meeting already; it goes on"));
    else
        activate(change.audioSources, change.timestamp);
}

void MeetingProtocol::activate(const std::vector<std::string>& sources, const std::optional<double>& switchTimestamp) {
    if (!m_recording) {
        m_wasRefused = true;
        m_send(errorMessage("MEETING_DISABLED", "This server does not record meetings; the dictation goes on"));
        return;
    }
    const bool hasSystemAudio = sources.empty() || std::ranges::find(sources, "system") != sources.end();
    m_recording->activate(hasSystemAudio);
    m_send(meetingModeActivatedMessage(m_recording->position(), switchTimestamp));
}

void MeetingProtocol::handle(const message::SystemAudioStatus& status) {
    const auto known = systemAudioStatusNamed(status.status);
    log(LogLevel::debug, "session",
        (known ? "system audio: " : "ignored the unknown status of system audio: ") + status.status.substr(0, 64));
    if (known && isMeeting())
        m_recording->changeSystemAudio(*known);
}

void MeetingProtocol::addAudio(std::span<const int16_t> samples) {
    if (m_recording)
        m_recording->addAudio(samples);
}

void MeetingProtocol::addPiece(const Transcript& piece) {
    if (!m_recording || piece.text.empty())
        return;
    const Transcript& added = m_recording->addPiece(piece);
    if (isMeeting())
        m_send(meetingTextUpdateMessage(added));
}

void MeetingProtocol::store(TaskRequest request, const std::string& language,
                            std::function<void(std::optional<Task>)> stored) {
    auto conclude = m_recording->conclude(std::move(request), language);
    m_services.work([conclude = std::move(conclude), post = m_post, stored = std::move(stored)] {
        post([stored, task = conclude ? conclude() : std::nullopt] { stored(task); });
    });
}

std::string MeetingProtocol::endedMessage(const SessionSummary& summary, const std::optional<Task>& task) const {
    if (isMeeting())
        return meetingEndedMessage(summary, meetingEnd(m_recording->pieces(), m_recording->isMicrophoneOnly(), task));
    // A client that was refused a meeting keeps the recording as a dictation.
    return sessionEndedMessage(summary, m_wasRefused ? Json{{"mic_only_fallback", true}} : Json::object());
}

void MeetingProtocol::watch(const Task& task, Send send) const {
    m_services.work(
        [tasks = m_services.tasks, post = m_post, send = std::move(send), userId = task.request.userId, id = task.id] {
            tasks->whenOver(userId, id, [post, send](const Task& over) {
                post([send, frame = diarizationMessage(over)] { send(frame); });
            });
        });
}

} // namespace quillo::server
