#include "Tasks/TaskResults.h"

#include "Tasks/PieceWords.h"
#include "Transcription/TranscriptAssembler.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>

namespace quillo::server {
namespace {

int64_t durationMs(const RecognisedFile& file) { return file.sampleCount * 1000 / AudioReader::rate; }

/// Of words on a side on which no voice was found; no turn has it.
constexpr int silentSideSpeaker = -1;

/// Consecutive text of one speaker on one channel.
struct Segment {
    int speaker = 0;
    AudioSource source = AudioSource::unknown;
    double start = 0;
    double end = 0;
    TranscriptAssembler text;
};

/// The speaker at a time on one side; between turns, the closest one. A side without any turn has one speaker.
int speakerAt(const std::vector<SpeakerTurn>& turns, double time, int side) {
    int speaker = side == 0 ? 0 : silentSideSpeaker;
    double distance = std::numeric_limits<double>::max();
    for (const SpeakerTurn& turn : turns) {
        if (turn.side != side)
            continue;
        const double away = std::max({turn.start - time, time - turn.end, 0.0});
        if (away < distance) {
            distance = away;
            speaker = turn.speaker;
        }
    }
    return speaker;
}

void append(std::vector<Segment>& segments, int speaker, const Transcript& piece) {
    if (segments.empty() || segments.back().speaker != speaker || segments.back().source != piece.source)
        segments.push_back({speaker, piece.source, piece.start, piece.end, {}});
    segments.back().end = piece.end;
    segments.back().text.append(piece);
}

std::vector<Segment> segmentsOf(const RecognisedFile& file, const std::vector<SpeakerTurn>& turns) {
    std::vector<Segment> segments;
    for (const Transcript& piece : file.pieces) {
        const auto words = wordsOf(piece);
        const int side = piece.source == AudioSource::system ? 1 : 0;
        std::vector<int> speakers;
        speakers.reserve(words.size());
        for (const Word& word : words)
            speakers.push_back(speakerAt(turns, (word.start + word.end) / 2, side));
        if (std::ranges::all_of(speakers, [&](int speaker) { return speaker == speakers.front(); })) {
            append(segments, speakers.empty() ? 0 : speakers.front(), piece);
            continue;
        }
        for (size_t begin = 0; begin < words.size();) {
            size_t end = begin;
            Transcript part;
            part.source = piece.source;
            part.start = words[begin].start;
            for (; end < words.size() && speakers[end] == speakers[begin]; ++end) {
                part.text += (part.text.empty() ? "" : " ") + words[end].text;
                part.end = words[end].end;
            }
            append(segments, speakers[begin], part);
            begin = end;
        }
    }
    return segments;
}

/// "01:05", or "1:02:05" from an hour on.
std::string display(double seconds) {
    const auto whole = static_cast<long>(seconds);
    std::array<char, 32> text{};
    if (whole >= 3600)
        std::snprintf(text.data(), text.size(), "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
    else
        std::snprintf(text.data(), text.size(), "%02ld:%02ld", whole / 60, whole % 60);
    return text.data();
}

/// The times are accurate to milliseconds; more digits would only look exact.
double rounded(double seconds) { return std::round(seconds * 1000) / 1000; }

} // namespace

Json transcriptionResult(const std::string& id, const RecognisedFile& file) {
    Json result{{"text", file.text}};
    if (!file.language.empty())
        result["language_detected"] = file.language;
    result["duration_ms"] = durationMs(file);
    result["word_count"] = countWords(file.text);
    result["transcription_id"] = id;
    return result;
}

Json diarizationResult(const RecognisedFile& file, const std::vector<SpeakerTurn>& turns, const std::string& provider) {
    const auto segments = segmentsOf(file, turns);
    std::map<int, size_t> numbers; // speakers with recognised text, in the order of their first words
    Json list = Json::array();
    for (const Segment& segment : segments) {
        const size_t number = numbers.emplace(segment.speaker, numbers.size() + 1).first->second;
        Json entry{{"speaker_label", "Speaker " + std::to_string(number)}};
        entry["start"] = rounded(segment.start);
        entry["end"] = rounded(segment.end);
        entry["start_formatted"] = display(segment.start);
        entry["end_formatted"] = display(segment.end);
        entry["text"] = segment.text.text();
        if (segment.source != AudioSource::unknown)
            entry["source_channel"] = nameOf(segment.source);
        list.push_back(std::move(entry));
    }
    Json result{{"plain_text", file.text}, {"processed_text", file.text}};
    result["segments"] = std::move(list);
    // These fields need a language model.
    result["summary"] = "";
    result["action_items"] = "";
    result["speaker_count"] = numbers.size();
    result["stt_provider"] = provider;
    result["total_words"] = countWords(file.text);
    result["duration_ms"] = durationMs(file);
    return result;
}

} // namespace quillo::server
