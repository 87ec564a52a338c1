#include "Transport/SessionTranscript.h"

#include "Foundation/Encoding.h"

#include <utility>

namespace quillo::server {
namespace {

constexpr int64_t samplesPerMillisecond = 16;

} // namespace

SessionTranscript::SessionTranscript(const message::StartSession& start, std::string provider)
    : m_id(randomUuid()), m_recordingId(start.recordingId) {
    const auto& languages = start.options.languages;
    for (const auto& language : languages)
        m_languages += (m_languages.empty() ? "" : ",") + language;
    m_detectsLanguage = languages.size() != 1 || languages.front() == "auto";
    if (!m_recordingId.empty())
        m_sampleHash.emplace();
    m_summary.metricsId = randomUuid();
    m_summary.transcriptionId = randomUuid();
    m_summary.provider = std::move(provider);
}

void SessionTranscript::addAudio(const std::vector<int16_t>& samples) {
    m_sampleCount += static_cast<int64_t>(samples.size());
    if (m_sampleHash)
        m_sampleHash->update(samples);
}

bool SessionTranscript::append(const Transcript& piece) {
    if (!piece.text.empty()) {
        m_text.append(piece);
        m_confidenceSum += piece.confidence;
        ++m_finalCount;
    }
    if (!m_summary.language.empty() || piece.language.empty())
        return false;
    m_summary.language = piece.language;
    return m_detectsLanguage;
}

const SessionSummary& SessionTranscript::summarise() {
    m_summary.text = m_text.text();
    m_summary.durationMs = m_sampleCount / samplesPerMillisecond;
    m_summary.confidence = m_finalCount > 0 ? m_confidenceSum / m_finalCount : 0;
    return m_summary;
}

std::optional<LiveTranscript> SessionTranscript::takeLive(const std::string& userId) {
    auto hash = std::exchange(m_sampleHash, std::nullopt);
    if (!hash)
        return std::nullopt;
    LiveTranscript live;
    live.userId = userId;
    live.recordingId = m_recordingId;
    live.id = m_summary.transcriptionId;
    live.text = m_summary.text;
    live.language = m_summary.language;
    live.languages = m_languages;
    live.provider = m_summary.provider;
    live.sampleCount = m_sampleCount;
    live.sampleHash = hash->finish();
    return live;
}

} // namespace quillo::server
