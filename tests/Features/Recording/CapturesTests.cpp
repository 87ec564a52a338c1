#include "RecordingFixture.h"

#include "Features/Recording/Captures.h"

namespace quillo::test {

namespace {

/// A dictation with two sources, as a meeting has them.
class CapturesTests : public RecordingFixture {
protected:
    CapturesTests() {
        for (const auto& channel : {m_first, m_second}) {
            channel->hooks.launch = [this](const QString& name, std::function<Task<>()> body) {
                m_tasks.run(name, [body = std::move(body)](std::stop_token) { return body(); });
            };
            channel->hooks.captured = [](const AudioChunk&) {};
            channel->hooks.launch(QStringLiteral("open"), [channel] { return openQuietly(channel); });
        }
        settle();
    }
    ~CapturesTests() override {
        m_captures.discard(); // else those who read the sources wait for ever
        settle();
        m_tasks.cancelAll();
        settle();
    }

    static Task<> openQuietly(CaptureChannel::Handle channel) {
        co_await CaptureChannel::open(channel, std::make_shared<CaptureChannel::Failure>());
    }
    static Task<> drain(const Captures& captures, bool& isDone) {
        co_await captures.drain();
        isDone = true;
    }
    static void say(MockAudioService& source, int64_t sequence, int milliseconds) {
        source.yield({.sequence = sequence,
                      .data = QByteArray(AudioFormat::chunkByteSize, 'a'),
                      .timestamp = QDateTime::fromMSecsSinceEpoch(milliseconds, Qt::UTC)});
        settle();
    }

    MockAudioService m_system;
    CaptureChannel::Handle m_first = std::make_shared<CaptureChannel>(audio, clock, QStringLiteral("first"));
    CaptureChannel::Handle m_second = std::make_shared<CaptureChannel>(m_system, clock, QStringLiteral("second"));
    Captures m_captures{{m_first, m_second}};
    TaskRunner m_tasks{[](const QString&, const QString& error) { ADD_FAILURE() << error.toStdString(); }};
};

TEST_F(CapturesTests, closingEndsEverySourceAndKeepsItsLastChunk) {
    ASSERT_TRUE(audio.isCapturing() && m_system.isCapturing());
    m_system.beforeStop = [this] { m_system.speak(); };
    m_captures.close();
    EXPECT_FALSE(audio.isCapturing() || m_system.isCapturing() || m_captures.isOpen());
    EXPECT_TRUE(m_captures.isSilent());
    bool isDrained = false;
    m_tasks.run(QStringLiteral("drain"), [this, &isDrained](std::stop_token) { return drain(m_captures, isDrained); });
    settle();
    EXPECT_TRUE(isDrained);
    EXPECT_FALSE(m_captures.isSilent());
    EXPECT_EQ(m_captures.bufferedChunks(), 1U);
}

TEST_F(CapturesTests, discardingDropsWhatEverySourceStillDelivers) {
    m_system.beforeStop = [this] { m_system.speak(); };
    m_captures.discard();
    settle();
    EXPECT_FALSE(audio.isCapturing() || m_system.isCapturing() || m_captures.hasBufferedChunks());
}

TEST_F(CapturesTests, chunksLeaveInTheOrderOfTheirCapture) {
    say(audio, 0, 100);
    say(m_system, 0, 50);
    say(m_system, 1, 150);
    say(audio, 1, 200);
    EXPECT_EQ(m_captures.counters().chunks, 4);
    QList<qint64> times;
    while (const auto chunk = m_captures.takeFirst())
        times << chunk->timestamp.toMSecsSinceEpoch();
    EXPECT_EQ(times, (QList<qint64>{50, 100, 150, 200}));
    say(audio, 2, 300);
    m_captures.stopBuffering();
    say(m_system, 2, 300);
    EXPECT_FALSE(m_captures.hasBufferedChunks());
}

} // namespace
} // namespace quillo::test
