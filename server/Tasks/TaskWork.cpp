#include "Tasks/TaskWork.h"

#include "Diarization/SpeakerTracker.h"
#include "Tasks/PieceWords.h"
#include "Tasks/TaskResults.h"
#include "Transcription/TranscriptAssembler.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace quillo::server {
namespace {

/// Of a stereo file, from the left.
constexpr std::array channels{AudioSource::microphone, AudioSource::system};

FileRecognitionSettings settingsOf(const TaskWork& work, const std::string& language) {
    FileRecognitionSettings settings;
    settings.language = language;
    settings.stallTimeout = work.stallTimeout;
    settings.onProgress = work.onProgress;
    return settings;
}

void push(SpeakerTracker& speakers, const AudioBlock& block) {
    if (block.left.empty())
        speakers.push(block.mono);
    else
        speakers.push(block.left, block.right);
}

std::string textOf(const std::vector<Transcript>& pieces) {
    TranscriptAssembler text;
    for (const Transcript& piece : pieces)
        text.append(piece);
    return text.text();
}

/// Each channel by itself, one after the other: where both sides speak at once, a mix of them is understood by no
/// recogniser.
RecognisedFile recogniseChannels(const TaskWork& work, const std::filesystem::path& audio, const std::string& language,
                                 const std::function<void(const AudioBlock&)>& onAudio) {
    RecognisedFile both;
    for (size_t i = 0; i < channels.size(); ++i) {
        AudioReader reader(audio);
        auto settings = settingsOf(work, language);
        settings.source = channels[i];
        settings.onProgress = [&work, i](double share) {
            work.onProgress((static_cast<double>(i) + share) / channels.size());
        };
        if (i == 0)
            settings.onAudio = onAudio;
        auto heard = recogniseFile(work.recogniser, reader, settings, work.stop);
        std::ranges::move(heard.pieces, std::back_inserter(both.pieces));
        both.sampleCount = heard.sampleCount;
        if (both.language.empty())
            both.language = heard.language;
    }
    std::ranges::stable_sort(both.pieces, {}, &Transcript::start);
    return both;
}

} // namespace

Json transcribeUpload(const TaskWork& work, const std::filesystem::path& audio, const std::string& taskId,
                      const std::string& language) {
    AudioReader reader(audio);
    return transcriptionResult(taskId, recogniseFile(work.recogniser, reader, settingsOf(work, language), work.stop));
}

Json diarizeUpload(const TaskWork& work, const std::filesystem::path& audio, const std::string& language) {
    SpeakerTracker speakers;
    const auto onAudio = [&speakers](const AudioBlock& block) { push(speakers, block); };
    if (AudioReader(audio).isStereo()) {
        auto heard = recogniseChannels(work, audio, language, onAudio);
        const auto turns = speakers.finish();
        removeEchoes(heard.pieces, turns);
        heard.text = textOf(heard.pieces);
        return diarizationResult(heard, turns, work.recogniser.name());
    }
    AudioReader reader(audio);
    auto settings = settingsOf(work, language);
    settings.onAudio = onAudio;
    const auto heard = recogniseFile(work.recogniser, reader, settings, work.stop);
    return diarizationResult(heard, speakers.finish(), work.recogniser.name());
}

Json separateMeeting(const TaskWork& work, const std::filesystem::path& audio, const StoredTranscript& transcript) {
    AudioReader reader(audio);
    SpeakerTracker speakers;
    const auto length = static_cast<double>(std::max<int64_t>(1, reader.length()));
    double samples = 0;
    AudioBlock block;
    while (reader.read(block)) {
        if (work.stop.stop_requested())
            throw RecognitionStopped();
        push(speakers, block);
        samples += static_cast<double>(block.mono.size());
        work.onProgress(std::min(1.0, samples / length));
    }
    auto turns = speakers.finish();
    for (SpeakerTurn& turn : turns) {
        turn.start += transcript.audioStart;
        turn.end += transcript.audioStart;
    }
    return diarizationResult(transcript.heard, turns, work.recogniser.name());
}

} // namespace quillo::server
