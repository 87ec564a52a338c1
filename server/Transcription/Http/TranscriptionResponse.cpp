#include "Transcription/Http/TranscriptionResponse.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace quillo::server {

namespace {

using Json = nlohmann::json;

std::string stringAt(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::optional<double> numberAt(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end())
        return std::nullopt;
    double value = NAN;
    if (found->is_number())
        value = found->get<double>();
    else if (found->is_string())
        value = std::strtod(found->get_ref<const std::string&>().c_str(), nullptr);
    return std::isfinite(value) && value >= 0 ? std::optional(value) : std::nullopt;
}

const Json& arrayAt(const Json& object, const char* key) {
    static const Json none = Json::array();
    const auto found = object.find(key);
    return found != object.end() && found->is_array() ? *found : none;
}

std::string trimmed(const std::string& text) {
    constexpr const char* blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    return first == std::string::npos ? std::string() : text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

/// Adds the words of a list. Inside segments some services list parts of words: a part without a leading space
/// continues the previous word.
void addWords(std::vector<Word>& words, const Json& list, double offset, bool parts) {
    const bool blanks = parts && std::ranges::any_of(list, [](const Json& entry) {
                            return entry.is_object() && stringAt(entry, "word").starts_with(' ');
                        });
    for (const Json& entry : list) {
        if (!entry.is_object())
            continue;
        const std::string text = stringAt(entry, "word");
        const auto start = numberAt(entry, "start");
        const auto end = numberAt(entry, "end");
        if (trimmed(text).empty() || !start || !end)
            continue;
        if (blanks && !words.empty() && !text.starts_with(' ')) {
            words.back().text += trimmed(text);
            words.back().end = *end + offset;
            continue;
        }
        const double confidence = numberAt(entry, "probability").value_or(1);
        words.push_back({trimmed(text), *start + offset, *end + offset, std::min(1.0, confidence)});
    }
}

} // namespace

std::optional<Transcript> readTranscription(const std::string& body, double offset) {
    const Json root = Json::parse(body, nullptr, false);
    if (!root.is_object() || !root.contains("text") || !root["text"].is_string())
        return std::nullopt;
    Transcript transcript;
    transcript.text = trimmed(stringAt(root, "text"));
    const std::string language = stringAt(root, "language");
    if (language.size() == 2) // some services spell it out
        transcript.language = language;
    addWords(transcript.words, arrayAt(root, "words"), offset, false);
    double logarithms = 0;
    size_t counted = 0;
    const bool search = transcript.words.empty();
    for (const Json& segment : arrayAt(root, "segments")) {
        if (!segment.is_object())
            continue;
        if (search)
            addWords(transcript.words, arrayAt(segment, "words"), offset, true);
        const auto found = segment.find("avg_logprob");
        if (found != segment.end() && found->is_number() && found->get<double>() <= 0) {
            logarithms += found->get<double>();
            ++counted;
        }
    }
    if (counted > 0)
        transcript.confidence = std::exp(logarithms / static_cast<double>(counted));
    return transcript;
}

std::string readServiceError(const std::string& body) {
    const Json root = Json::parse(body, nullptr, false);
    std::string message;
    if (root.is_object()) {
        for (const char* key : {"error", "detail", "message"}) {
            const auto found = root.find(key);
            if (found == root.end() || !message.empty())
                continue;
            message = found->is_object() ? stringAt(*found, "message") : stringAt(root, key);
        }
    }
    // Cut between characters, so that the message stays UTF-8.
    size_t length = std::min<size_t>(message.size(), 200);
    while (length < message.size() && length > 0 && (static_cast<unsigned char>(message[length]) & 0xC0) == 0x80)
        --length;
    return message.substr(0, length);
}

} // namespace quillo::server
