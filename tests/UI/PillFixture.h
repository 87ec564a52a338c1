#pragma once

#include "Support/Async.h"
#include "UI/DesktopClient.h"
#include "UI/FakeApplication.h"
#include "UI/Pill/FloatingPill.h"
#include "UI/RecordingFixture.h"

#include <gtest/gtest.h>

namespace quillo::test {

/// The real pill on a real X server with a window manager.
struct PillFixture : testing::Test, RecordingFixture {
    FakeApplication application;
    QmlEngineHost host;
    PillViewModel viewModel{store, clock, [](const QString& key) { return key; }, application.hooks.pillEnabled};
    FloatingPill pill{viewModel, host, application.hooks, *application.windowHints};
    DesktopClient other;

    /// Shows an error, which stays until it is put away.
    void showError() {
        send({action::StartRecording{}, action::ConnectionFailed{u"refused"_qs}});
        ASSERT_TRUE(waitUntil([this] { return pill.window()->isExposed(); }));
    }
    void hide() {
        viewModel.dismiss();
        waitUntilHidden();
    }
    void waitUntilHidden() {
        ASSERT_TRUE(waitUntil([this] { return !pill.window()->isVisible(); }));
    }
    [[nodiscard]] xcb_window_t windowId() const { return static_cast<xcb_window_t>(pill.window()->winId()); }
};

} // namespace quillo::test
