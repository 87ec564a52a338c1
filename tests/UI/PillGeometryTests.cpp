#include "UI/Controls/WaveformModel.h"
#include "UI/Pill/PillPlacement.h"

#include <gtest/gtest.h>

#include <limits>

using namespace quillo;

namespace {

constexpr QRect laptop{0, 0, 1280, 770};
constexpr QRect right{1280, -200, 1920, 1080};

TEST(PillPlacementTest, StaysWholeOnOneScreen) {
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    struct Row {
        const char* name;
        std::vector<QRect> screens;
        std::optional<QPointF> saved;
        QPoint pointer;
        QPoint place;
    };
    const int low = PillPlacement::bottomDistance;
    const int edge = PillPlacement::edgeDistance;
    for (const auto& row : std::initializer_list<Row>{
             {"bottom centre", {laptop}, {}, {5, 5}, {640, 770 - low}},
             {"screen of the pointer", {laptop, right}, {}, {2000, 100}, {2240, 880 - low}},
             {"pointer between screens", {laptop, {1400, 0, 800, 600}}, {}, {1390, 300}, {1800, 600 - low}},
             {"saved", {laptop}, QPointF(300, 200), {900, 600}, {300, 200}},
             {"saved on the other screen", {laptop, right}, QPointF(2000, 300), {5, 5}, {2000, 300}},
             {"saved on a screen that is gone", {laptop}, QPointF(2900, 300), {5, 5}, {1280 - 200 - edge, 300}},
             {"saved below a panel", {laptop}, QPointF(640, 795), {5, 5}, {640, 770 - edge}},
             {"saved above the top", {laptop}, QPointF(-50, 3), {5, 5}, {200 + edge, 60 + edge}},
             {"saved nonsense", {laptop}, QPointF(none, 1), {5, 5}, {640, 770 - low}},
             {"screen smaller than the pill", {QRect(0, 0, 300, 40)}, {}, {5, 5}, {150, 50}},
         }) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(placePill({row.screens, row.saved, row.pointer, QSize(400, 60)}), row.place);
    }
}

TEST(WaveformModelTest, ScrollsASoundFromRightToLeft) {
    WaveformModel wave;
    for (int tick = 0; tick < 60; ++tick)
        wave.tick(WaveformModel::Mode::live, 0);
    for (const float bar : wave.bars())
        EXPECT_NEAR(bar, 0, 1e-3);
    for (int tick = 0; tick < WaveformModel::ticksPerBar; ++tick)
        wave.tick(WaveformModel::Mode::live, 1);
    const auto peak = [&] { return std::ranges::max_element(wave.bars()) - wave.bars().begin(); };
    EXPECT_EQ(peak(), WaveformModel::barCount - 1);
    EXPECT_GT(wave.bars().back(), 0.8F);
    for (int tick = 0; tick < 5 * WaveformModel::ticksPerBar; ++tick)
        wave.tick(WaveformModel::Mode::live, 0);
    EXPECT_EQ(peak(), WaveformModel::barCount - 6);
    EXPECT_LT(wave.bars().back(), wave.bars()[WaveformModel::barCount - 6]);
}

TEST(WaveformModelTest, StaysInRangeWhateverTheLevel) {
    WaveformModel wave;
    for (const float level : {2.0F, -1.0F, std::numeric_limits<float>::quiet_NaN(), 1.0F})
        for (const auto mode : {WaveformModel::Mode::live, WaveformModel::Mode::calm, WaveformModel::Mode::travelling})
            for (int tick = 0; tick < 40; ++tick) {
                wave.tick(mode, level);
                for (const float bar : wave.bars())
                    ASSERT_TRUE(bar >= -1e-4F && bar <= 1.0F) << bar;
                ASSERT_TRUE(wave.offset() >= 0 && wave.offset() < 1);
            }
}

} // namespace
