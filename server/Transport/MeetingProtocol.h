#pragma once

#include "Meetings/MeetingRecording.h"
#include "Transport/ProtocolMessages.h"

#include <functional>
#include <memory>

namespace quillo::server {

/// What the meetings of a socket need; without tasks the server has no meetings.
struct MeetingServices {
    std::shared_ptr<TaskService> tasks;
    /// Runs a function on a thread that may block.
    std::function<void(std::function<void()>)> work;
};

/// The part of the streaming protocol that concerns meetings, for one session. On the connection's strand.
class MeetingProtocol {
public:
    using Send = std::function<void(std::string frame)>;
    /// Runs a function on the strand later; thread-safe.
    using Post = std::function<void(std::function<void()>)>;

    MeetingProtocol(MeetingServices services, Send send, Post post);

    /// The session has started.
    void started(const message::StartSession& start);
    /// While the session runs; true when the message was understood.
    void handle(const message::SwitchToMeeting& change);
    void handle(const message::SystemAudioStatus& status);
    void addAudio(std::span<const int16_t> samples);
    void addPiece(const Transcript& piece);

    [[nodiscard]] bool isMeeting() const { return m_recording && m_recording->isActive(); }
    /// Seconds of audio that the disk is behind.
    [[nodiscard]] double backlogSeconds() const { return m_recording ? m_recording->backlogSeconds() : 0; }

    /// Hands a meeting over to be separated by speakers, and calls `stored` on the strand once that is done, at the
    /// latest when the disk answers.
    void store(TaskRequest request, const std::string& language, std::function<void(std::optional<Task>)> stored);
    /// "session_ended"; `task` comes from `store`.
    [[nodiscard]] std::string endedMessage(const SessionSummary& summary, const std::optional<Task>& task) const;
    /// Calls `send` on the strand with the frame that tells the result of the separation, once there is one.
    void watch(const Task& task, Send send) const;

private:
    void activate(const std::vector<std::string>& sources, const std::optional<double>& switchTimestamp);

    MeetingServices m_services;
    Send m_send;
    Post m_post;
    std::unique_ptr<MeetingRecording> m_recording; ///< null on a server without meetings
    bool m_wasRefused = false;
};

} // namespace quillo::server
