#include "Verdict.h"

#include <gtest/gtest.h>

#include <functional>

using namespace quillo::test;

namespace {

constexpr size_t beginsAt = 20'000;
constexpr size_t length = 30'000;
constexpr Bounds bounds{800, 1800, 100};

class AlignmentTest : public testing::Test {
protected:
    Verdict judged(const Samples& held, const Moments& when) const {
        return judge(align(held, reference, 5'000, 100'000), held, when, bounds);
    }
    /// The key went down 600 samples before, came up 100 after the recording.
    static constexpr Moments moments{beginsAt - 600, beginsAt + length + 100, {}};

    Samples reference = noise(7, 120'000);
    Samples copy{reference.begin() + beginsAt, reference.begin() + beginsAt + length};
};

TEST_F(AlignmentTest, ACopyIsFaithful) {
    const auto alignment = align(copy, reference, 0, reference.size());
    ASSERT_EQ(alignment.stretches.size(), 1U);
    EXPECT_EQ(alignment.stretches[0], (Stretch{0, beginsAt, length}));
    EXPECT_TRUE(alignment.isFaithful());
    const auto verdict = judged(copy, moments);
    EXPECT_TRUE(verdict.faults.isEmpty()) << verdict.faults.join(u'\n').toStdString();
    EXPECT_EQ(verdict.startDelay, 600);
    EXPECT_EQ(verdict.endMargin, -100);
    EXPECT_EQ(verdict.lost, 0);
}

struct Damage {
    const char* name;
    std::function<void(Samples&)> inflict;
    int64_t lost;
    int64_t strange;
    int64_t repeated;
};

TEST_F(AlignmentTest, EveryDamageIsFoundAndCounted) {
    const auto at = [](Samples& samples, size_t position) {
        return samples.begin() + static_cast<ptrdiff_t>(position);
    };
    const std::vector<Damage> damages{
        {"one sample is missing", [&](Samples& held) { held.erase(at(held, 9000)); }, 1, 0, 0},
        {"one sample occurs twice", [&](Samples& held) { held.insert(at(held, 9000), held[8999]); }, 0, 0, 1},
        {"a chunk occurs twice",
         [&](Samples& held) {
             const Samples chunk(at(held, 4800), at(held, 6400));
             held.insert(at(held, 6400), chunk.begin(), chunk.end());
         },
         0, 0, 1600},
        {"one sample is off by one", [](Samples& held) { held[777] = static_cast<int16_t>(held[777] + 1); }, 0, 1, 0},
        {"two samples next to each other are exchanged", [](Samples& held) { std::swap(held[100], held[101]); }, 0, 2,
         0},
        {"a chunk is silent", [&](Samples& held) { std::fill(at(held, 4800), at(held, 6400), 0); }, 0, 1600, 0},
        {"the bytes are shifted",
         [](Samples& held) {
             for (size_t i = 0; i + 1 < held.size(); ++i)
                 held[i] = static_cast<int16_t>((held[i] >> 8 & 0xff) | held[i + 1] << 8);
         },
         30'000 + 700 - 800 - 1800, 30'000, 0},
        {"the end is missing", [](Samples& held) { held.resize(held.size() - 2000); }, 2100 - 1800, 0, 0},
        {"the beginning is missing", [&](Samples& held) { held.erase(held.begin(), at(held, 1000)); }, 1600 - 800, 0,
         0},
        {"everything is missing", [](Samples& held) { held.clear(); }, 30'000 + 700 - 800 - 1800, 0, 0},
    };
    for (const auto& damage : damages) {
        SCOPED_TRACE(damage.name);
        auto held = copy;
        damage.inflict(held);
        const auto verdict = judged(held, moments);
        EXPECT_FALSE(verdict.faults.isEmpty());
        EXPECT_EQ(verdict.lost, damage.lost);
        EXPECT_EQ(verdict.strange, damage.strange);
        EXPECT_EQ(verdict.repeated, damage.repeated);
    }
}

TEST_F(AlignmentTest, WhatIsInFlightAtTheEndIsNotLost) {
    copy.resize(copy.size() - 1600);
    EXPECT_TRUE(judged(copy, moments).faults.isEmpty());
    // Killed before the first chunk was full.
    EXPECT_TRUE(judged({}, {beginsAt, beginsAt + 800 + 1800, {}}).faults.isEmpty());
    EXPECT_FALSE(judged({}, {beginsAt, beginsAt + 800 + 1801, {}}).faults.isEmpty());
}

TEST_F(AlignmentTest, ARecordingMayEndOrGoOnWhereTheSoundServerWasReplaced) {
    constexpr size_t seam = beginsAt + 10'000;
    Samples held(copy.begin(), copy.begin() + 9'500);
    // The samples in flight when the server ended are gone.
    EXPECT_TRUE(judged(held, {beginsAt - 600, seam, seam}).faults.isEmpty());
    const auto goOn = [&](size_t missing) {
        auto both = held;
        both.insert(both.end(), 320, 0); // the new server is silent at first
        both.insert(both.end(), reference.begin() + seam + static_cast<ptrdiff_t>(missing),
                    reference.begin() + beginsAt + length);
        return judged(both, {beginsAt - 600, beginsAt + length, seam});
    };
    EXPECT_TRUE(goOn(0).faults.isEmpty()) << goOn(0).faults.join(u'\n').toStdString();
    EXPECT_TRUE(goOn(4'000).faults.isEmpty()) << "the new microphone is opened late";
    auto unrecorded = copy;
    unrecorded.resize(10'000);
    const auto late = noise(8, 101);
    unrecorded.insert(unrecorded.end(), late.begin(), late.end() - 1);
    EXPECT_TRUE(judged(unrecorded, {beginsAt - 600, seam, seam}).faults.isEmpty());
    unrecorded.push_back(late.back());
    EXPECT_EQ(judged(unrecorded, {beginsAt - 600, seam, seam}).strange, 101) << "more than the recorder can lack";
    held.resize(8'000);
    EXPECT_EQ(goOn(0).lost, 200) << "more than the flight is gone";
}

TEST_F(AlignmentTest, DropoutsOfTheSignalAreNoFault) {
    std::fill(reference.begin() + beginsAt + 5'000, reference.begin() + beginsAt + 5'500, 0);
    std::fill(reference.begin() + beginsAt - 50, reference.begin() + beginsAt + 50, 0);
    const Samples held(reference.begin() + beginsAt, reference.begin() + beginsAt + length);
    EXPECT_TRUE(judged(held, moments).faults.isEmpty());
}

} // namespace
