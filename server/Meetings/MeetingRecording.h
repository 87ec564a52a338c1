#pragma once

#include "Meetings/MeetingAudio.h"
#include "Meetings/RecentAudio.h"
#include "Meetings/SystemAudioTimeline.h"
#include "Tasks/TaskService.h"

namespace quillo::server {

/// What one session of a stream has heard, as far as its meeting needs it: a dictation that may become a meeting, or is
/// one. One thread.
class MeetingRecording {
public:
    /// `work` runs a function on a thread that may block.
    MeetingRecording(std::shared_ptr<TaskService> tasks, MeetingAudio::Work work);
    /// Drops the audio, unless `conclude` was called.
    ~MeetingRecording();
    MeetingRecording(const MeetingRecording&) = delete;
    MeetingRecording& operator=(const MeetingRecording&) = delete;

    void addAudio(std::span<const int16_t> samples);
    /// Returns the piece with the source it came from, as far as that is known.
    const Transcript& addPiece(Transcript piece);

    /// From now on it is a meeting; what was heard before belongs to it. `hasSystemAudio`: the stream contains the
    /// system's audio from now on.
    void activate(bool hasSystemAudio);
    [[nodiscard]] bool isActive() const { return m_isActive; }
    void changeSystemAudio(SystemAudioStatus status) { m_systemAudio.change(status, position()); }

    /// Seconds of audio so far.
    [[nodiscard]] double position() const;
    /// Seconds of audio that the disk is behind.
    [[nodiscard]] double backlogSeconds() const { return m_audio ? m_audio->backlogSeconds() : 0; }
    [[nodiscard]] bool isMicrophoneOnly() const { return !m_systemAudio.everActive(); }
    [[nodiscard]] const std::vector<Transcript>& pieces() const { return m_pieces; }

    /// The work, for a thread that may block, that hands the meeting over to be separated by speakers, and returns the
    /// task; a failed one tells why that cannot be done. Empty when nothing was said. Call it once, at the end;
    /// `request` needs the user, the recording and the languages.
    std::function<std::optional<Task>()> conclude(TaskRequest request, const std::string& language);

private:
    std::shared_ptr<TaskService> m_tasks;
    MeetingAudio::Work m_work;
    RecentAudio m_recent; ///< until it is a meeting
    bool m_isActive = false;
    std::shared_ptr<MeetingAudio> m_audio; ///< from `activate` to `conclude`
    SystemAudioTimeline m_systemAudio;
    std::vector<Transcript> m_pieces;
    int64_t m_sampleCount = 0;
    int64_t m_audioStart = 0; ///< sample at which the kept audio begins
};

} // namespace quillo::server
