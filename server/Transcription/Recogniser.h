#pragma once

#include "Transcription/AudioSource.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace quillo::server {

/// A recognised word; times are seconds from the start of the session's audio.
struct Word {
    std::string text;
    double start = 0;
    double end = 0;
    double confidence = 1;
};

/// A piece of recognised speech, UTF-8.
struct Transcript {
    std::string text;
    std::string language;  ///< ISO 639-1, empty when unknown
    double confidence = 1; ///< 0 to 1
    double start = 0;      ///< seconds from the start of the session's audio
    double end = 0;
    std::vector<Word> words; ///< may be empty
    AudioSource source = AudioSource::unknown;
};

/// What the client asked for when it started the session.
struct RecognitionOptions {
    std::vector<std::string> languages; ///< ISO 639-1; empty or "auto" for any
    bool enhanced = false;
    /// No user waits for these words live, so other sessions have priority.
    bool background = false;
};

/// Receives what a recognition produces. Called from the recogniser's threads, one call at a time per session.
class RecognitionListener {
public:
    virtual ~RecognitionListener() = default;

    /// The text of the piece being spoken, replaced by every further call and by `onFinal`.
    virtual void onPartial(const Transcript& transcript) = 0;
    /// A finished piece; pieces follow each other in time.
    virtual void onFinal(const Transcript& transcript) = 0;
    /// Everything pushed before `finish` has been recognised; nothing follows.
    virtual void onFinished() = 0;
    /// Recognition failed; nothing follows. `unavailable` distinguishes a broken recogniser from a bad request.
    virtual void onFailed(bool unavailable, const std::string& message) = 0;
};

/// One stream of audio being recognised. Thread-safe; no call blocks on recognition. Destroying it abandons the work:
/// after the destructor returns the listener is not called again.
class RecognitionSession {
public:
    virtual ~RecognitionSession() = default;

    /// Appends samples: 16 kHz mono, signed 16-bit. The samples are copied.
    virtual void push(std::span<const int16_t> samples) = 0;
    /// No more audio follows: recognise the rest, then call `onFinished`.
    virtual void finish() = 0;
    /// Seconds of audio pushed and not yet recognised; used to slow down a client that sends too fast.
    [[nodiscard]] virtual double backlogSeconds() const = 0;
};

/// Thrown by `Recogniser::open` when the recogniser cannot serve: the message names the cause and the next step.
class RecogniserUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The recogniser serves as many sessions as it can; one of them has to end first.
class RecogniserBusy : public RecogniserUnavailable {
public:
    using RecogniserUnavailable::RecogniserUnavailable;
};

/// The recogniser works, but knows none of the languages asked for.
class LanguageNotServed : public RecogniserUnavailable {
public:
    using RecogniserUnavailable::RecogniserUnavailable;
};

/// A speech recogniser. Thread-safe.
class Recogniser {
public:
    virtual ~Recogniser() = default;

    /// The name reported to clients as "stt_provider".
    [[nodiscard]] virtual std::string name() const = 0;
    /// False while sessions are known to fail, as far as can be determined without trying one.
    [[nodiscard]] virtual bool isAvailable() const { return true; }
    /// The languages it understands (ISO 639-1); nullopt when that is not known.
    [[nodiscard]] virtual std::optional<std::vector<std::string>> languages() const { return std::nullopt; }
    /// Starts a recognition. Throws RecogniserUnavailable.
    virtual std::unique_ptr<RecognitionSession> open(const RecognitionOptions& options,
                                                     std::shared_ptr<RecognitionListener> listener) = 0;
};

} // namespace quillo::server
