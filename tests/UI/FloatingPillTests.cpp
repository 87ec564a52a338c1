#include "UI/PillFixture.h"

#include <QScreen>

using namespace quillo;
using namespace quillo::test;

namespace {

struct FloatingPillTest : PillFixture {
    void SetUp() override {
        other.movePointer({10, 10});
        ASSERT_TRUE(waitUntil([this] { return other.activeWindow() == other.window(); }));
    }
    void show() {
        pill.prepare();
        showError();
    }
    QPoint centre() const {
        auto place = pill.window()->geometry().center();
        place.setY(pill.window()->geometry().bottom() - PillWindow::margin - 15);
        return place;
    }
    /// Moves about over the pill as a hand does, until the pill has noticed: a pointer that rests while the window is
    /// being mapped is reported to no one.
    bool hover() {
        const bool noticed = waitUntil([this, away = false]() mutable {
            away = !away;
            other.movePointer(centre() + QPoint(away ? 1 : 0, 0));
            return store.state().isHovering;
        });
        other.movePointer(centre());
        return noticed;
    }
    void expectFocusUntouched() {
        EXPECT_EQ(other.activeWindow(), other.window());
        EXPECT_EQ(other.inputFocus(), other.window());
    }
};

TEST_F(FloatingPillTest, NeverTakesTheFocus) {
    show();
    expectFocusUntouched();
    const auto states = other.states(windowId());
    EXPECT_TRUE(states.contains(u"_NET_WM_STATE_ABOVE"_qs));
    EXPECT_TRUE(states.contains(u"_NET_WM_STATE_SKIP_TASKBAR"_qs));

    ASSERT_TRUE(hover());
    other.button(true);
    other.button(false);
    // A click puts the error away: it has arrived.
    ASSERT_TRUE(waitUntil([this] { return !store.state().status.error(); }));
    expectFocusUntouched();
    other.movePointer({10, 10});
    waitUntilHidden();
    expectFocusUntouched();
}

TEST_F(FloatingPillTest, IsCutToItsShapeWithoutACompositor) {
    show();
    EXPECT_FALSE(pill.window()->isComposited());
    const auto shape = pill.window()->mask();
    const auto area = shape.boundingRect();
    EXPECT_TRUE(shape.contains(area.center()));
    EXPECT_FALSE(shape.contains(area.topLeft()));
    EXPECT_FALSE(shape.contains(area.bottomRight()));
    EXPECT_LT(area.width(), pill.window()->width());
}

TEST_F(FloatingPillTest, IsSeenAtItsFirstShowing) {
    // Started at once, before the window was prepared.
    send({action::StartRecording{}});
    const auto shownColor = [this] {
        const auto place = pill.window()->geometry().topLeft() + pill.window()->mask().boundingRect().center();
        const auto pixel = pill.window()->screen()->grabWindow(0, place.x(), place.y() - 12, 1, 1).toImage();
        return pixel.isNull() ? QColor() : pixel.pixelColor(0, 0);
    };
    EXPECT_TRUE(waitUntil([&] { return shownColor() == pill.window()->color(); }))
        << qPrintable(shownColor().name()) << " instead of " << qPrintable(pill.window()->color().name());
}

TEST_F(FloatingPillTest, StaysWhereItIsDragged) {
    show();
    const auto before = pill.window()->position();
    ASSERT_TRUE(hover());
    const auto grip = centre();
    other.button(true);
    for (int step = 1; step <= 10; ++step)
        other.movePointer(grip + QPoint(-12, -20) * step);
    ASSERT_TRUE(waitUntil([&] { return pill.window()->position() == before + QPoint(-120, -200); }));
    other.button(false);
    ASSERT_TRUE(waitUntil([this] { return application.pillPosition.has_value(); }));
    EXPECT_TRUE(store.state().status.error()) << "a drag is no click";

    viewModel.dismiss();
    other.movePointer({10, 10});
    waitUntilHidden();
    show();
    EXPECT_EQ(pill.window()->position(), before + QPoint(-120, -200));
}

} // namespace
