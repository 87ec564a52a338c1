#include "Meetings/MeetingRecording.h"

#include "Foundation/Log.h"
#include "Uploads/UploadError.h"

namespace quillo::server {
namespace {

constexpr double samplesPerSecond = 16000;

/// The cause, for the user who wants the meeting by speakers.
UploadError describe(const UploadError& error) {
    if (error.status() != 507)
        return error;
    return {error.status(), error.code(),
            "The server had no room for the audio of the meeting, so its speakers are not known. Free space on it, or "
            "raise --max-spool-mb, and have the recording transcribed again."};
}

std::optional<Task> submit(TaskService& tasks, TaskRequest request, const StoredTranscript& transcript,
                           MeetingAudio& audio) {
    try {
        const auto finished = audio.finish();
        request.audioHash = finished.hash;
        return tasks.submitMeeting(request, transcript, *finished.file);
    } catch (const UploadError& error) {
        return tasks.recordFailedMeeting(request, describe(error));
    }
}

} // namespace

MeetingRecording::MeetingRecording(std::shared_ptr<TaskService> tasks, MeetingAudio::Work work)
    : m_tasks(std::move(tasks)), m_work(std::move(work)) {}

MeetingRecording::~MeetingRecording() {
    if (m_audio) // removing a large file takes a while
        m_work([audio = std::move(m_audio)]() mutable { audio.reset(); });
}

void MeetingRecording::addAudio(std::span<const int16_t> samples) {
    m_sampleCount += static_cast<int64_t>(samples.size());
    if (m_audio)
        m_audio->add(samples);
    else
        m_recent.add(samples);
}

double MeetingRecording::position() const { return static_cast<double>(m_sampleCount) / samplesPerSecond; }

const Transcript& MeetingRecording::addPiece(Transcript piece) {
    piece.source = m_systemAudio.sourceOf(piece.start, piece.end);
    return m_pieces.emplace_back(std::move(piece));
}

void MeetingRecording::activate(bool hasSystemAudio) {
    m_isActive = true;
    m_audioStart = m_sampleCount - static_cast<int64_t>(m_recent.size());
    m_audio = std::make_shared<MeetingAudio>([tasks = m_tasks] { return tasks->newAudio(); }, m_work);
    for (const auto& chunk : m_recent.take())
        m_audio->add(chunk);
    if (hasSystemAudio)
        changeSystemAudio(SystemAudioStatus::active);
}

std::function<std::optional<Task>()> MeetingRecording::conclude(TaskRequest request, const std::string& language) {
    StoredTranscript transcript;
    transcript.audioStart = static_cast<double>(m_audioStart) / samplesPerSecond;
    transcript.heard.language = language;
    transcript.heard.sampleCount = m_sampleCount;
    transcript.heard.pieces = m_pieces;
    if (transcript.heard.pieces.empty())
        return {};
    return [tasks = m_tasks, audio = std::move(m_audio), request = std::move(request),
            transcript = std::move(transcript)]() -> std::optional<Task> {
        try {
            return submit(*tasks, request, transcript, *audio);
        } catch (const std::exception& error) {
            log(LogLevel::error, "meetings", std::string("a meeting is not separated by speakers: ") + error.what());
            return std::nullopt;
        }
    };
}

} // namespace quillo::server
