#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quillo::server {

/// An action of the scripted recogniser after a given amount of audio.
struct ScriptEvent {
    enum class Kind { partial, final, fail, unavailable };
    double at = 0; ///< seconds of audio
    Kind kind = Kind::partial;
    std::string text;
    double confidence = 0.9;
};

/// What a scripted recogniser answers. JSON, every member optional:
///
/// {"language": "en", "open": "unavailable: why", "delay_ms": 20, "speed": 2.0,
///  "events": [{"at": 0.5, "partial": "hello"}, {"at": 1, "final": "hello world", "confidence": 0.8},
///             {"at": 2, "fail": "why"}, {"at": 2, "unavailable": "why"}],
///  "words": ["one", "two"], "words_per_second": 3, "words_per_final": 10,
///  "finish": "normal" | "never" | "fail" | "unavailable"}
///
/// With "words" the text grows with the audio, repeating the list; "events" are then ignored.
struct Script {
    std::string language = "en";
    std::string unavailable; ///< what `open` throws, when not empty
    std::chrono::milliseconds delay{0};
    /// Seconds of audio recognised per second; empty recognises at once.
    std::optional<double> speed;
    std::vector<ScriptEvent> events;
    std::vector<std::string> words;
    double wordsPerSecond = 3;
    int wordsPerFinal = 10;
    enum class Finish { normal, never, fail, unavailable };
    Finish finish = Finish::normal;

    /// A sentence that repeats, three words a second.
    static Script defaultScript();
    /// Throws std::runtime_error naming the member that is wrong.
    static Script fromJson(const std::string& text);
};

} // namespace quillo::server
