#include "Tasks/TaskWork.h"

#include "Diarization/SpeakerTracker.h"
#include "Tasks/TaskResults.h"

#include <algorithm>

namespace quillo::server {
namespace {

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

} // namespace

Json transcribeUpload(const TaskWork& work, const std::filesystem::path& audio, const std::string& taskId,
                      const std::string& language) {
    AudioReader reader(audio);
    return transcriptionResult(taskId, recogniseFile(work.recogniser, reader, settingsOf(work, language), work.stop));
}

Json diarizeUpload(const TaskWork& work, const std::filesystem::path& audio, const std::string& language) {
    AudioReader reader(audio);
    SpeakerTracker speakers;
    auto settings = settingsOf(work, language);
    settings.onAudio = [&speakers](const AudioBlock& block) { push(speakers, block); };
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
