#pragma once

#include "Foundation/Digest.h"
#include "Tasks/Task.h"
#include "Transcription/TranscriptAssembler.h"
#include "Transport/ProtocolMessages.h"

#include <optional>
#include <string>
#include <vector>

namespace quillo::server {

/// What one session of a streaming socket has heard and recognised so far. One thread.
class SessionTranscript {
public:
    SessionTranscript() = default;
    /// `provider` is the name of the recogniser.
    SessionTranscript(const message::StartSession& start, std::string provider);

    [[nodiscard]] const std::string& id() const { return m_id; }
    [[nodiscard]] const std::string& recordingId() const { return m_recordingId; }
    /// As asked for, separated by commas.
    [[nodiscard]] const std::string& languages() const { return m_languages; }

    void addAudio(const std::vector<int16_t>& samples);
    /// Appends a final piece. True when its language is to be reported: the first one, where the client named none.
    [[nodiscard]] bool append(const Transcript& piece);
    /// The summary of everything so far.
    [[nodiscard]] const SessionSummary& summarise();
    /// What is stored for a session with a recording id, once, after `summarise`; nothing for one without.
    [[nodiscard]] std::optional<LiveTranscript> takeLive(const std::string& userId);

private:
    std::string m_id;
    std::string m_recordingId;
    std::string m_languages;
    bool m_detectsLanguage = false;
    int64_t m_sampleCount = 0;
    std::optional<Sha256> m_sampleHash; ///< of a named recording
    TranscriptAssembler m_text;
    SessionSummary m_summary;
    double m_confidenceSum = 0;
    int m_finalCount = 0;
};

} // namespace quillo::server
