// The pill on a desktop of two monitors, whose scales come from the environment.

#include "UI/PillFixture.h"

#include <QGuiApplication>
#include <QScreen>

using namespace quillo;
using namespace quillo::test;

namespace {

struct MonitorTest : PillFixture {
    // In the display's pixels.
    const QRect left{0, 0, 1280, 800};
    const QRect right{1280, 0, 1280, 800};

    void showWithPointerOn(const QRect& monitor) {
        other.movePointer(monitor.topLeft() + QPoint(100, 100));
        ASSERT_TRUE(
            waitUntil([&] { return QCursor::pos() == screenOf(monitor)->geometry().topLeft() + offset(monitor); }));
        showError();
    }
    QScreen* screenOf(const QRect& monitor) const { return QGuiApplication::screens().at(monitor == left ? 0 : 1); }
    QPoint offset(const QRect& monitor) const { return QPoint(100, 100) / screenOf(monitor)->devicePixelRatio(); }
    /// The visible pill in the display's pixels.
    QRect shown() const { return other.geometry(windowId()); }
    /// The window manager moves and sizes windows in steps of its own: the state that is reached counts.
    void expectWhollyOn(const QRect& monitor) {
        const int width = qRound(pill.window()->minimumWidth() * screenOf(monitor)->devicePixelRatio());
        EXPECT_TRUE(waitUntil([&] {
            return monitor.contains(shown()) && shown().width() == width &&
                   std::abs(shown().center().x() - monitor.center().x()) < 4;
        })) << shown().x()
            << "," << shown().y() << " " << shown().width() << "x" << shown().height();
    }
};

TEST_F(MonitorTest, AppearsWhereThePointerIsAtTheRightSize) {
    ASSERT_EQ(QGuiApplication::screens().size(), 2);
    for (const auto& monitor : {right, left, right}) {
        SCOPED_TRACE(monitor == left ? "left" : "right");
        showWithPointerOn(monitor);
        expectWhollyOn(monitor);
        hide();
    }
}

TEST_F(MonitorTest, ReturnsToThePlaceItWasGiven) {
    application.pillPosition = QPointF(screenOf(right)->geometry().center());
    showWithPointerOn(left);
    expectWhollyOn(right);
    hide();
}

} // namespace
