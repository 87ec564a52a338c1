#include "Tasks/StoredTranscript.h"

#include "Foundation/Json.h"
#include "Transcription/TranscriptAssembler.h"

namespace quillo::server {
namespace {

Json encode(const Transcript& piece) {
    Json json{{"text", piece.text}, {"start", piece.start}, {"end", piece.end}};
    if (piece.source != AudioSource::unknown)
        json["source"] = nameOf(piece.source);
    // A list for each word: a meeting has tens of thousands.
    Json words = Json::array();
    for (const Word& word : piece.words)
        words.push_back(Json::array({word.text, word.start, word.end}));
    json["words"] = std::move(words);
    return json;
}

Transcript decode(const Json& json) {
    Transcript piece;
    piece.text = json.at("text").get<std::string>();
    piece.start = json.at("start").get<double>();
    piece.end = json.at("end").get<double>();
    piece.source = sourceNamed(optionalString(json, "source").value_or(""));
    for (const Json& word : json.at("words"))
        piece.words.push_back({word.at(0).get<std::string>(), word.at(1).get<double>(), word.at(2).get<double>()});
    return piece;
}

} // namespace

std::string encode(const StoredTranscript& transcript) {
    Json json{{"audio_start", transcript.audioStart}, {"language", transcript.heard.language}};
    json["samples"] = transcript.heard.sampleCount;
    Json pieces = Json::array();
    for (const Transcript& piece : transcript.heard.pieces)
        pieces.push_back(encode(piece));
    json["pieces"] = std::move(pieces);
    return toText(json);
}

std::optional<StoredTranscript> decodeTranscript(const std::string& text) {
    const auto json = parseJson(text);
    if (!json)
        return std::nullopt;
    try {
        StoredTranscript transcript;
        transcript.audioStart = json->at("audio_start").get<double>();
        transcript.heard.language = json->at("language").get<std::string>();
        transcript.heard.sampleCount = json->at("samples").get<int64_t>();
        TranscriptAssembler whole;
        for (const Json& entry : json->at("pieces")) {
            whole.append(transcript.heard.pieces.emplace_back(decode(entry)));
        }
        transcript.heard.text = whole.text();
        return transcript;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace quillo::server
