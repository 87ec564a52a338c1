#include "Features/Recording/AudioBacklog.h"
#include "Features/Recording/RecordingState.h"
#include "Features/Recording/TimingSnapshot.h"
#include "Localization/LocalizationManager.h"

#include <gtest/gtest.h>

using namespace quillo;
using namespace std::chrono_literals;

namespace {

TEST(RecordingError, EachDescribesItselfByItsKey) {
    const std::vector<std::pair<RecordingError, const char*>> table{
        {RecordingError::ConnectionFailed{u"r"_qs}, "error.connectionFailed"},
        {RecordingError::ConnectionLost{u"text"_qs}, "error.connectionLostRecovered"},
        {RecordingError::ConnectionLost{}, "error.connectionLostNoText"},
        {RecordingError::AudioCaptureFailed{}, "error.audioCaptureFailed"},
        {RecordingError::TranscriptionFailed{}, "error.transcriptionFailed"},
        {RecordingError::MicrophonePermissionDenied{}, "error.micPermissionDenied"},
        {RecordingError::AccessibilityPermissionDenied{}, "error.accessibilityDenied"},
        {RecordingError::SessionStartFailed{}, "error.sessionStartFailed"},
        {RecordingError::Cancelled{}, "error.cancelled"},
        {RecordingError::AudioCaptureFailed{{}, {u"microphone.none"_qs}}, "microphone.none"},
        {RecordingError::TranscriptionFailed{{}, u"STT_UNAVAILABLE"_qs}, "error.recogniserUnavailable"},
        {RecordingError::TranscriptionFailed{{}, u"LANGUAGE_NOT_SERVED"_qs}, "error.languageNotServed"},
        {RecordingError::Unknown{u"bad_alloc"_qs}, "error.unexpected"},
    };
    for (const auto& [error, key] : table) {
        EXPECT_EQ(error.userMessage().key, QString::fromLatin1(key));
        EXPECT_NE(error.errorDescription(), error.userMessage().key) << key << " has no text";
    }
}

TEST(AudioBacklog, ItsCapCostsTheOldestChunksNeverTheNewest) {
    AudioBacklog backlog;
    constexpr int total = 700; // 2,240,000 bytes
    int dropped = 0;
    for (int i = 0; i < total; ++i)
        dropped += backlog.append({.sequence = i, .data = QByteArray(AudioFormat::chunkByteSize, 'a')});
    EXPECT_LE(backlog.byteCount(), AudioBacklog::maxBufferedAudioBytes);
    EXPECT_EQ(dropped + static_cast<int>(backlog.chunkCount()), total);
    EXPECT_EQ(backlog.takeFirst()->sequence, dropped);
    int64_t last = 0;
    while (const auto chunk = backlog.takeFirst())
        last = chunk->sequence;
    EXPECT_EQ(last, total - 1);
    EXPECT_EQ(backlog.byteCount(), 0);
}

TEST(TimingSnapshot, IntervalsOfMissingPointsAreLeftOut) {
    TimingSnapshot snapshot;
    const Clock::Instant start{1h};
    EXPECT_TRUE(snapshot.description().isEmpty());
    snapshot.recordingRequestedAt = start;
    snapshot.audioFirstChunkReceivedAt = start + 110ms;
    snapshot.webSocketConnectedAt = start + 250ms;
    EXPECT_EQ(snapshot.description(), u"hotkey→firstChunk=110.0ms, hotkey→wsConnected=250.0ms"_qs);
    const auto metrics = snapshot.metrics(start + 1s);
    EXPECT_EQ(metrics.keys(),
              (QStringList{u"hotkey_to_first_chunk_ms"_qs, u"hotkey_to_now_ms"_qs, u"hotkey_to_ws_connected_ms"_qs}));
}

} // namespace
