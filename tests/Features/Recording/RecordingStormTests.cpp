#include "RecordingFixture.h"

#include <random>

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

class RecordingStormTests : public RecordingFixture {};

TEST_F(RecordingStormTests, noOrderOfEventsLeavesAnythingBehind) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
    const std::vector<QString> codes{u"NO_SESSION"_qs, u"STT_UNAVAILABLE"_qs, u"TRANSCRIPTION_ERROR"_qs,
                                     u"INTERNAL_ERROR"_qs};
    const std::vector<std::function<void()>> events{
        [&] { store->send(action::StartRecording{}); },
        [&] { store->send(action::StartRecording{}); },
        [&] { store->send(action::StopRecording{}); },
        [&] { store->send(action::CancelRecording{}); },
        [&] { store->send(action::Reset{}); },
        [&] { audio.speak(); },
        [&] { audio.speak(); },
        [&] { audio.loseDevice(); },
        [&] { webSocket.yield(server::SessionStarted{u"s"_qs}); },
        [&] { webSocket.yield(server::SessionEnded{.text = u"t"_qs}); },
        [&] {
            webSocket.yield(server::Error{codes[static_cast<size_t>(upTo(4))], u"m"_qs});
        },
        [&] { webSocket.lose(u"gone"_qs); },
        [&] { clock.advance(std::chrono::milliseconds(upTo(1500))); },
        [&] { settle(); },
    };
    for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < 200; ++i)
            events[static_cast<size_t>(upTo(static_cast<int>(events.size())))]();
        settle();
        store->send(action::StopRecording{});
        clock.advance(10min); // several dictations may wait for the connection, one behind the other
        expectQuiet();
        EXPECT_TRUE(is<Status::Idle>() || store->state().status.error()) << description();
        expectDictationWorks();
        if (HasFailure())
            return;
    }
}

} // namespace

} // namespace quillo::test
