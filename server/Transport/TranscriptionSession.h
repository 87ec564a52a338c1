#pragma once

#include "Tasks/Task.h"
#include "Transport/MeetingProtocol.h"
#include "Transport/ProtocolMessages.h"
#include "Transport/SessionTranscript.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quillo::server {

/// The protocol of one streaming socket: consecutive sessions, each with its recognition. Independent of the socket.
/// Everything is called on the connection's strand; `post` moves the recogniser's reports there.
class TranscriptionSession : public std::enable_shared_from_this<TranscriptionSession> {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Channel {
        std::function<void(std::string frame)> send;
        /// Runs a function on the strand later. Thread-safe, and valid after the connection has ended.
        std::function<void(std::function<void()>)> post;
        /// Destroys a recognition on a thread that may block.
        std::function<void(std::unique_ptr<RecognitionSession>)> dispose;
        /// Stores the result of a session with a recording id; may return before it is stored.
        std::function<void(LiveTranscript)> keep;
        MeetingServices meetings;
    };

    struct Bounds {
        std::chrono::milliseconds finish; ///< from "end_session" to the recogniser's last word
        std::chrono::milliseconds session;
        std::chrono::milliseconds sign; ///< between two signs of progress until then
        std::chrono::milliseconds busy; ///< how long a start waits for a free place in the recogniser
    };

    TranscriptionSession(Channel channel, std::shared_ptr<Recogniser> recogniser, Bounds bounds, std::string userId);

    /// The socket is open.
    void begin();
    void receive(std::string_view frame);
    /// A frame arrived that was too large.
    void receiveOversized(size_t maxBytes);
    /// The socket has closed: abandons the recognition.
    void abandon();

    /// The server stops in `time`: warns a client that is dictating. False when it is not.
    bool warnOfStop(std::chrono::milliseconds time);

    /// Opening a recogniser may load a model. After `receive` the caller takes this work, runs it on a thread that may
    /// block, and calls `blockingWorkDone` before the next `receive`; empty when there is none. If the latter returns
    /// false, the recogniser has no free place yet; repeat the work a little later.
    std::function<void()> takeBlockingWork();
    bool blockingWorkDone();

    /// True when no session is open on the socket.
    [[nodiscard]] bool isIdle() const { return m_state == State::idle; }
    /// How far the recogniser is behind, in seconds of audio.
    [[nodiscard]] double backlogSeconds() const;

    /// When to call `onDeadline`, if at all.
    [[nodiscard]] std::optional<Time> deadline() const { return m_nextSign ? m_nextSign : m_deadline; }
    void onDeadline();

private:
    class Listener;
    struct Opening;
    /// `storing`: everything was recognised, and the audio of the meeting is being handed over.
    enum class State { idle, opening, running, finishing, storing };

    void handle(const message::StartSession& start);
    void handle(const message::AudioChunk& chunk);
    void handle(const message::EndSession& end);
    void handle(const message::SwitchToMeeting& change);
    void handle(const message::SystemAudioStatus& status);
    void handle(const message::Ping& ping);
    void handle(const message::Unknown& unknown);
    void handle(const message::Invalid& invalid);

    void onPartial(const Transcript& transcript);
    void onFinal(const Transcript& transcript);
    void onFinished();
    void onFailed(bool unavailable, const std::string& message);
    void finish();
    void storeMeeting();
    void end(const std::optional<Task>& meeting);
    void planSign();
    void fail(const std::string& code, const std::string& text, const std::string& details);
    void release();
    [[nodiscard]] std::string label() const;

    Channel m_channel;
    std::shared_ptr<Recogniser> m_recogniser;
    Bounds m_bounds;
    std::string m_userId;

    State m_state = State::idle;
    uint64_t m_generation = 0; ///< distinguishes events of the running recognition from those of an earlier one
    std::shared_ptr<Opening> m_opening;
    std::unique_ptr<RecognitionSession> m_recognition;
    std::optional<Time> m_deadline;
    std::optional<Time> m_nextSign; ///< always before `m_deadline`
    bool m_toldNoSession = false;
    SessionTranscript m_transcript;             ///< of the running session; empty when idle
    std::unique_ptr<MeetingProtocol> m_meeting; ///< of the running session; null when idle
};

} // namespace quillo::server
