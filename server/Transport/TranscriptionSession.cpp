#include "Transport/TranscriptionSession.h"

#include "Foundation/Log.h"

#include <algorithm>

namespace quillo::server {
/// Posts the recogniser's calls to the strand, which drops them when their session has ended.
class TranscriptionSession::Listener : public RecognitionListener {
public:
    Listener(std::weak_ptr<TranscriptionSession> session, std::function<void(std::function<void()>)> post,
             uint64_t generation)
        : m_session(std::move(session)), m_post(std::move(post)), m_generation(generation) {}

    void onPartial(const Transcript& transcript) override {
        hop([transcript](TranscriptionSession& session) { session.onPartial(transcript); });
    }
    void onFinal(const Transcript& transcript) override {
        hop([transcript](TranscriptionSession& session) { session.onFinal(transcript); });
    }
    void onFinished() override {
        hop([](TranscriptionSession& session) { session.onFinished(); });
    }
    void onFailed(bool unavailable, const std::string& message) override {
        hop([unavailable, message](TranscriptionSession& session) { session.onFailed(unavailable, message); });
    }

private:
    template <class Call>
    void hop(Call call) {
        m_post([weak = m_session, generation = m_generation, call = std::move(call)] {
            const auto session = weak.lock();
            if (session && session->m_generation == generation && session->m_state != State::idle)
                call(*session);
        });
    }

    std::weak_ptr<TranscriptionSession> m_session;
    std::function<void(std::function<void()>)> m_post;
    uint64_t m_generation;
};

struct TranscriptionSession::Opening {
    message::StartSession start;
    std::shared_ptr<RecognitionListener> listener;
    Time until; ///< a busy recogniser counts as a failure only after this
    bool taken = false;
    bool busy = false;
    std::unique_ptr<RecognitionSession> result;
    std::string unavailable;
    bool isLanguageNotServed = false; ///< the reason why it is unavailable
    std::string failure;
};

TranscriptionSession::TranscriptionSession(Channel channel, std::shared_ptr<Recogniser> recogniser, Bounds bounds,
                                           std::string userId)
    : m_channel(std::move(channel)), m_recogniser(std::move(recogniser)), m_bounds(bounds),
      m_userId(std::move(userId)) {}

std::string TranscriptionSession::label() const { return "session " + m_transcript.id(); }

void TranscriptionSession::begin() { m_channel.send(connectedMessage()); }

void TranscriptionSession::receive(std::string_view frame) {
    try {
        std::visit([this](const auto& message) { handle(message); }, parseClientMessage(frame));
    } catch (const std::exception& error) {
        fail("INTERNAL_ERROR", "The server failed on this session", error.what());
    }
}

void TranscriptionSession::receiveOversized(size_t maxBytes) {
    handle(message::Invalid{"the frame is larger than " + std::to_string(maxBytes) + " bytes"});
}

void TranscriptionSession::handle(const message::StartSession& start) {
    if (m_state != State::idle) {
        m_channel.send(errorMessage("SESSION_EXISTS", "A session is running on this socket; end it first"));
        return;
    }
    m_transcript = SessionTranscript(start, m_recogniser->name());
    m_toldNoSession = false;
    m_state = State::opening;
    m_opening = std::make_shared<Opening>();
    m_opening->start = start;
    m_opening->until = std::chrono::steady_clock::now() + m_bounds.busy;
    m_opening->listener = std::make_shared<Listener>(weak_from_this(), m_channel.post, ++m_generation);
}

std::function<void()> TranscriptionSession::takeBlockingWork() {
    if (!m_opening || m_opening->taken)
        return {};
    m_opening->taken = true;
    m_opening->busy = false;
    return [recogniser = m_recogniser, opening = m_opening] {
        try {
            opening->result = recogniser->open(opening->start.options, opening->listener);
        } catch (const RecogniserBusy& error) {
            opening->busy = std::chrono::steady_clock::now() < opening->until;
            opening->unavailable = opening->busy ? "" : error.what();
        } catch (const LanguageNotServed& error) {
            opening->isLanguageNotServed = true;
            opening->unavailable = error.what();
        } catch (const RecogniserUnavailable& error) {
            opening->unavailable = error.what();
        } catch (const std::exception& error) {
            opening->failure = error.what();
        }
    };
}

bool TranscriptionSession::blockingWorkDone() {
    if (m_state == State::opening && m_opening->busy) {
        m_opening->taken = false;
        return false;
    }
    const auto opening = std::exchange(m_opening, nullptr);
    if (m_state != State::opening) {
        m_channel.dispose(std::move(opening->result));
        return true;
    }
    if (opening->isLanguageNotServed) {
        fail("LANGUAGE_NOT_SERVED", "The recogniser does not know the language", opening->unavailable);
        return true;
    }
    if (!opening->unavailable.empty()) {
        fail("STT_UNAVAILABLE", "STT provider unavailable", opening->unavailable);
        return true;
    }
    if (!opening->result) {
        fail("INTERNAL_ERROR", "The server failed to start the session", opening->failure);
        return true;
    }
    m_recognition = std::move(opening->result);
    m_state = State::running;
    m_deadline = std::chrono::steady_clock::now() + m_bounds.session;
    log(LogLevel::info, "session", label() + " of user " + m_userId + " started");
    m_channel.send(sessionStartedMessage(m_transcript.id()));
    m_meeting = std::make_unique<MeetingProtocol>(m_channel.meetings, m_channel.send, m_channel.post);
    m_meeting->started(opening->start);
    return true;
}

bool TranscriptionSession::warnOfStop(std::chrono::milliseconds time) {
    if (m_state == State::idle)
        return false;
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(time).count();
    m_channel.send(errorMessage("SERVER_STOPPING", "The server stops soon; end the dictation",
                                "it stops in " + std::to_string(seconds) + " s"));
    return true;
}

void TranscriptionSession::handle(const message::AudioChunk& chunk) {
    if (m_state != State::running) {
        // Report it once: chunks arrive ten times a second, and the client answers each report with a new session.
        if (!std::exchange(m_toldNoSession, true))
            m_channel.send(errorMessage("NO_SESSION", "No session is running on this socket; start one first"));
        return;
    }
    m_transcript.addAudio(chunk.samples);
    m_meeting->addAudio(chunk.samples);
    m_recognition->push(chunk.samples);
}

void TranscriptionSession::handle(const message::EndSession&) {
    if (m_state == State::running)
        finish();
    else if (m_state == State::idle)
        m_channel.send(errorMessage("NO_SESSION", "No session is running on this socket; start one first"));
}

void TranscriptionSession::finish() {
    m_state = State::finishing;
    m_deadline = std::chrono::steady_clock::now() + m_bounds.finish;
    planSign();
    m_recognition->finish();
}

void TranscriptionSession::planSign() {
    m_nextSign = std::chrono::steady_clock::now() + m_bounds.sign;
    if (*m_nextSign >= *m_deadline)
        m_nextSign.reset();
}

void TranscriptionSession::handle(const message::SwitchToMeeting& change) {
    if (m_state == State::running)
        m_meeting->handle(change);
    else if (m_state == State::idle)
        m_channel.send(errorMessage("NO_SESSION", "No session is running on this socket; start one first"));
    else
        m_channel.send(errorMessage("SESSION_ENDING", "The session is ending and stays what it was"));
}

void TranscriptionSession::handle(const message::SystemAudioStatus& status) {
    if (m_state == State::running)
        m_meeting->handle(status);
}

void TranscriptionSession::handle(const message::Ping&) { m_channel.send(pongMessage()); }

void TranscriptionSession::handle(const message::Unknown& unknown) {
    log(LogLevel::info, "session", "ignored a message of the unknown type \"" + unknown.type + "\"");
}

void TranscriptionSession::handle(const message::Invalid& invalid) {
    log(LogLevel::warning, "session", "dropped a message of user " + m_userId + ": " + invalid.reason);
    m_channel.send(errorMessage("INVALID_MESSAGE", "The message was not understood and dropped", invalid.reason));
}

void TranscriptionSession::onPartial(const Transcript& transcript) {
    m_channel.send(partialTranscriptMessage(transcript));
}

void TranscriptionSession::onFinal(const Transcript& transcript) {
    if (m_transcript.append(transcript))
        m_channel.send(languageDetectedMessage(transcript.language, transcript.confidence));
    m_channel.send(finalTranscriptMessage(transcript));
    m_meeting->addPiece(transcript);
}

void TranscriptionSession::onFinished() {
    const auto& summary = m_transcript.summarise();
    log(LogLevel::info, "session",
        label() + " ended: " + std::to_string(summary.durationMs) + " ms of audio, " +
            std::to_string(countWords(summary.text)) + " words");
    if (auto live = m_transcript.takeLive(m_userId))
        m_channel.keep(std::move(*live));
    if (m_meeting->isMeeting())
        storeMeeting();
    else
        end(std::nullopt);
}

void TranscriptionSession::storeMeeting() {
    m_state = State::storing;
    m_channel.dispose(std::move(m_recognition));
    TaskRequest request;
    request.userId = m_userId;
    request.recordingId = m_transcript.recordingId();
    request.language = m_transcript.languages();
    m_meeting->store(std::move(request), m_transcript.summarise().language,
                     [weak = weak_from_this(), generation = m_generation](const std::optional<Task>& task) {
                         const auto session = weak.lock();
                         if (session && session->m_generation == generation && session->m_state == State::storing)
                             session->end(task);
                     });
}

void TranscriptionSession::end(const std::optional<Task>& meeting) {
    const std::string frame = m_meeting->endedMessage(m_transcript.summarise(), meeting);
    const auto protocol = std::move(m_meeting);
    release();
    m_channel.send(frame);
    if (!meeting)
        return;
    protocol->watch(*meeting, [weak = weak_from_this()](const std::string& result) {
        if (const auto session = weak.lock())
            session->m_channel.send(result);
    });
}

void TranscriptionSession::onFailed(bool unavailable, const std::string& message) {
    if (unavailable)
        fail("STT_UNAVAILABLE", "STT provider unavailable", message);
    else
        fail("TRANSCRIPTION_ERROR", "The audio could not be recognised", message);
}

void TranscriptionSession::fail(const std::string& code, const std::string& text, const std::string& details) {
    log(LogLevel::error, "session", label() + " failed with " + code + ": " + details);
    release();
    m_channel.send(errorMessage(code, text, details));
}

void TranscriptionSession::onDeadline() {
    if (m_nextSign) {
        // A client without a message for 8 s considers the server lost.
        m_channel.send(pongMessage());
        planSign();
    } else if (m_state == State::finishing) {
        fail("TRANSCRIPTION_ERROR", "The recogniser did not finish in time", "the server gave up waiting for it");
    } else if (m_state == State::storing) {
        // The disk is slow. The words need not wait for it, and the task can be found by its recording.
        end(std::nullopt);
    } else if (m_state == State::running) {
        m_channel.send(errorMessage("SESSION_LIMIT", "The session reached the longest time this server allows"));
        finish();
    } else {
        m_deadline.reset();
    }
}

double TranscriptionSession::backlogSeconds() const {
    return std::max(m_recognition ? m_recognition->backlogSeconds() : 0, m_meeting ? m_meeting->backlogSeconds() : 0);
}

void TranscriptionSession::abandon() {
    if (m_state == State::running || m_state == State::finishing)
        log(LogLevel::info, "session", label() + " abandoned: its connection ended");
    release();
}

void TranscriptionSession::release() {
    m_state = State::idle;
    m_deadline.reset();
    m_nextSign.reset();
    m_transcript = {};
    m_meeting.reset();
    if (m_recognition)
        m_channel.dispose(std::move(m_recognition));
}

} // namespace quillo::server
