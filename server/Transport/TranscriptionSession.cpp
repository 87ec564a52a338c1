#include "Transport/TranscriptionSession.h"

#include "Foundation/Encoding.h"
#include "Foundation/Log.h"

namespace quillo::server {
namespace {

constexpr int64_t samplesPerMillisecond = 16;

} // namespace

/// Carries the recogniser's calls to the strand; dropped there when the session they belong to is over.
class TranscriptionSession::Listener : public RecognitionListener {
public:
    Listener(std::weak_ptr<TranscriptionSession> session, std::function<void(std::function<void()>)> post,
             uint64_t generation)
        : session_(std::move(session)), post_(std::move(post)), generation_(generation) {}

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
        post_([weak = session_, generation = generation_, call = std::move(call)] {
            const auto session = weak.lock();
            if (session && session->generation_ == generation && session->state_ != State::idle)
                call(*session);
        });
    }

    std::weak_ptr<TranscriptionSession> session_;
    std::function<void(std::function<void()>)> post_;
    uint64_t generation_;
};

struct TranscriptionSession::Opening {
    RecognitionOptions options;
    std::shared_ptr<RecognitionListener> listener;
    bool taken = false;
    std::unique_ptr<RecognitionSession> result;
    std::string unavailable;
    std::string failure;
};

TranscriptionSession::TranscriptionSession(Channel channel, std::shared_ptr<Recogniser> recogniser, Bounds bounds,
                                           std::string userId)
    : channel_(std::move(channel)), recogniser_(std::move(recogniser)), bounds_(bounds), userId_(std::move(userId)) {}

std::string TranscriptionSession::label() const { return "session " + sessionId_; }

void TranscriptionSession::begin() { channel_.send(connectedMessage()); }

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
    if (state_ != State::idle) {
        channel_.send(errorMessage("SESSION_EXISTS", "A session is running on this socket; end it first"));
        return;
    }
    sessionId_ = randomUuid();
    sampleCount_ = 0;
    recordingId_ = start.recordingId;
    sampleHash_.reset();
    if (!recordingId_.empty())
        sampleHash_.emplace();
    languages_.clear();
    for (const auto& language : start.options.languages)
        languages_ += (languages_.empty() ? "" : ",") + language;
    confidenceSum_ = 0;
    finalCount_ = 0;
    toldNoSession_ = false;
    const auto& languages = start.options.languages;
    detectsLanguage_ = languages.size() != 1 || languages.front() == "auto";
    summary_ = {};
    text_ = {};
    summary_.metricsId = randomUuid();
    summary_.transcriptionId = randomUuid();
    summary_.provider = recogniser_->name();
    // One channel of audio reaches this server whatever the sources are.
    summary_.micOnlyFallback = start.isMeeting;
    state_ = State::opening;
    opening_ = std::make_shared<Opening>();
    opening_->options = start.options;
    opening_->listener = std::make_shared<Listener>(weak_from_this(), channel_.post, ++generation_);
}

std::function<void()> TranscriptionSession::takeBlockingWork() {
    if (!opening_ || opening_->taken)
        return {};
    opening_->taken = true;
    return [recogniser = recogniser_, opening = opening_] {
        try {
            opening->result = recogniser->open(opening->options, opening->listener);
        } catch (const RecogniserUnavailable& error) {
            opening->unavailable = error.what();
        } catch (const std::exception& error) {
            opening->failure = error.what();
        }
    };
}

void TranscriptionSession::blockingWorkDone() {
    const auto opening = std::exchange(opening_, nullptr);
    if (state_ != State::opening) {
        channel_.dispose(std::move(opening->result));
        return;
    }
    if (!opening->unavailable.empty()) {
        fail("STT_UNAVAILABLE", "STT provider unavailable", opening->unavailable);
        return;
    }
    if (!opening->result) {
        fail("INTERNAL_ERROR", "The server failed to start the session", opening->failure);
        return;
    }
    recognition_ = std::move(opening->result);
    state_ = State::running;
    deadline_ = std::chrono::steady_clock::now() + bounds_.session;
    log(LogLevel::info, "session", label() + " of user " + userId_ + " started");
    channel_.send(sessionStartedMessage(sessionId_));
}

void TranscriptionSession::handle(const message::AudioChunk& chunk) {
    if (state_ != State::running) {
        // Told once: chunks come ten times a second, and the client answers each report with a new session.
        if (!std::exchange(toldNoSession_, true))
            channel_.send(errorMessage("NO_SESSION", "No session is running on this socket; start one first"));
        return;
    }
    sampleCount_ += static_cast<int64_t>(chunk.samples.size());
    if (sampleHash_)
        sampleHash_->update(chunk.samples);
    recognition_->push(chunk.samples);
}

void TranscriptionSession::handle(const message::EndSession&) {
    if (state_ == State::running)
        finish();
    else if (state_ == State::idle)
        channel_.send(errorMessage("NO_SESSION", "No session is running on this socket; start one first"));
}

void TranscriptionSession::finish() {
    state_ = State::finishing;
    deadline_ = std::chrono::steady_clock::now() + bounds_.finish;
    recognition_->finish();
}

void TranscriptionSession::handle(const message::SwitchToMeeting&) {
    channel_.send(errorMessage("MEETING_DISABLED", "This server does not record meetings; the dictation goes on"));
}

void TranscriptionSession::handle(const message::SystemAudioStatus& status) {
    log(LogLevel::debug, "session", "system audio: " + status.status.substr(0, 64));
}

void TranscriptionSession::handle(const message::Ping&) { channel_.send(pongMessage()); }

void TranscriptionSession::handle(const message::Unknown& unknown) {
    log(LogLevel::info, "session", "ignored a message of the unknown type \"" + unknown.type + "\"");
}

void TranscriptionSession::handle(const message::Invalid& invalid) {
    log(LogLevel::warning, "session", "dropped a message of user " + userId_ + ": " + invalid.reason);
    channel_.send(errorMessage("INVALID_MESSAGE", "The message was not understood and dropped", invalid.reason));
}

void TranscriptionSession::onPartial(const Transcript& transcript) {
    channel_.send(partialTranscriptMessage(transcript));
}

void TranscriptionSession::onFinal(const Transcript& transcript) {
    if (!transcript.text.empty()) {
        text_.append(transcript);
        confidenceSum_ += transcript.confidence;
        ++finalCount_;
    }
    if (summary_.language.empty() && !transcript.language.empty()) {
        summary_.language = transcript.language;
        if (detectsLanguage_)
            channel_.send(languageDetectedMessage(transcript.language, transcript.confidence));
    }
    channel_.send(finalTranscriptMessage(transcript));
}

void TranscriptionSession::onFinished() {
    summary_.text = text_.text();
    summary_.durationMs = sampleCount_ / samplesPerMillisecond;
    summary_.confidence = finalCount_ > 0 ? confidenceSum_ / finalCount_ : 0;
    log(LogLevel::info, "session",
        label() + " ended: " + std::to_string(summary_.durationMs) + " ms of audio, " +
            std::to_string(countWords(summary_.text)) + " words");
    if (sampleHash_)
        keep();
    const std::string frame = sessionEndedMessage(summary_);
    release();
    channel_.send(frame);
}

void TranscriptionSession::keep() {
    LiveTranscript live;
    live.userId = userId_;
    live.recordingId = recordingId_;
    live.id = summary_.transcriptionId;
    live.text = summary_.text;
    live.language = summary_.language;
    live.languages = languages_;
    live.provider = summary_.provider;
    live.sampleCount = sampleCount_;
    live.sampleHash = sampleHash_->finish();
    channel_.keep(std::move(live));
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
    channel_.send(errorMessage(code, text, details));
}

void TranscriptionSession::onDeadline() {
    if (state_ == State::finishing) {
        fail("TRANSCRIPTION_ERROR", "The recogniser did not finish in time", "the server gave up waiting for it");
    } else if (state_ == State::running) {
        channel_.send(errorMessage("SESSION_LIMIT", "The session reached the longest time this server allows"));
        finish();
    } else {
        deadline_.reset();
    }
}

double TranscriptionSession::backlogSeconds() const { return recognition_ ? recognition_->backlogSeconds() : 0; }

void TranscriptionSession::abandon() {
    if (state_ == State::running || state_ == State::finishing)
        log(LogLevel::info, "session", label() + " abandoned: its connection ended");
    release();
}

void TranscriptionSession::release() {
    state_ = State::idle;
    deadline_.reset();
    summary_.text.clear();
    sampleHash_.reset();
    if (recognition_)
        channel_.dispose(std::move(recognition_));
}

} // namespace quillo::server
