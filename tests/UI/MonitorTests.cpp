// The pill on a desktop of two monitors, whose scales come from the environment.

#include "Support/Async.h"
#include "UI/DesktopClient.h"
#include "UI/FakeApplication.h"
#include "UI/Pill/FloatingPill.h"
#include "UI/RecordingFixture.h"

#include <QGuiApplication>
#include <QScreen>

#include <gtest/gtest.h>

using namespace quillo;
using namespace quillo::test;

namespace {

struct MonitorTest : testing::Test, RecordingFixture {
    FakeApplication application;
    QmlEngineHost host;
    PillViewModel viewModel{store, clock, [](const QString& key) { return key; }, application.hooks.pillEnabled};
    FloatingPill pill{viewModel, host, application.hooks, *application.windowHints};
    DesktopClient other;
    // In the display's pixels.
    const QRect left{0, 0, 1280, 800};
    const QRect right{1280, 0, 1280, 800};

    void showWithPointerOn(const QRect& monitor) {
        other.movePointer(monitor.topLeft() + QPoint(100, 100));
        ASSERT_TRUE(
            waitUntil([&] { return QCursor::pos() == screenOf(monitor)->geometry().topLeft() + offset(monitor); }));
        send({action::StartRecording{}, action::ConnectionFailed{QStringLiteral("refused")}});
        ASSERT_TRUE(waitUntil([this] { return pill.window()->isExposed(); }));
    }
    void hide() {
        viewModel.dismiss();
        ASSERT_TRUE(waitUntil([this] { return !pill.window()->isVisible(); }));
    }
    QScreen* screenOf(const QRect& monitor) const { return QGuiApplication::screens().at(monitor == left ? 0 : 1); }
    QPoint offset(const QRect& monitor) const { return QPoint(100, 100) / screenOf(monitor)->devicePixelRatio(); }
    /// The visible pill in the display's pixels.
    QRect shown() const { return other.geometry(static_cast<xcb_window_t>(pill.window()->winId())); }
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
