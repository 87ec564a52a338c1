#include "Meetings/SystemAudioTimeline.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quillo::server {
namespace {

/// A client that changes its mind ten times a second must not fill the memory. The last span then grows instead.
constexpr size_t maxSpans = 10000;

} // namespace

std::optional<SystemAudioStatus> systemAudioStatusNamed(std::string_view name) {
    constexpr std::array<std::pair<std::string_view, SystemAudioStatus>, 4> names{{
        {"active", SystemAudioStatus::active},
        {"paused", SystemAudioStatus::paused},
        {"ended", SystemAudioStatus::ended},
        {"unavailable", SystemAudioStatus::unavailable},
    }};
    const auto* const found = std::ranges::find(names, name, &decltype(names)::value_type::first);
    return found == names.end() ? std::nullopt : std::optional(found->second);
}

void SystemAudioTimeline::change(SystemAudioStatus status, double time) {
    if (status == SystemAudioStatus::unavailable) {
        m_spans.clear();
        return;
    }
    const bool isActive = !m_spans.empty() && !m_spans.back().end;
    if (isActive == (status == SystemAudioStatus::active))
        return;
    if (isActive)
        m_spans.back().end = time;
    else if (m_spans.size() < maxSpans)
        m_spans.push_back({time, std::nullopt});
    else
        m_spans.back().end.reset();
}

AudioSource SystemAudioTimeline::sourceOf(double start, double end) const {
    const bool overlaps = std::ranges::any_of(
        m_spans, [&](const Span& span) { return span.start < end && (!span.end || *span.end > start); });
    return overlaps ? AudioSource::unknown : AudioSource::microphone;
}

} // namespace quillo::server
