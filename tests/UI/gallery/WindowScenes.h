#pragma once

#include "UI/Account/AccountWindow.h"
#include "UI/FakeApplication.h"
#include "UI/Language/LanguagePickerWindow.h"
#include "UI/Welcome/WelcomeWindow.h"

#include <QTimer>

/// A window in one of its states; `show` leaves it on the screen until the next scene.
struct WindowScene {
    QString name;
    std::function<quillo::DialogWindow*()> show;
    std::chrono::milliseconds duration{500};
};

/// The windows in every state, over made-up data.
class WindowGallery {
public:
    WindowGallery(quillo::QmlEngineHost& host, quillo::test::FakeApplication& fakes, quillo::Clock& clock);

    [[nodiscard]] std::vector<WindowScene> scenes();

private:
    quillo::DialogWindow* welcome(const QString& step);
    quillo::DialogWindow* account(const quillo::AccountState& state);
    void changeAccount(const quillo::AccountState& state);

    quillo::QmlEngineHost& m_host;
    quillo::test::FakeApplication& m_fakes;
    quillo::Clock& m_clock;
    quillo::AccountModel m_account{m_fakes};
    std::unique_ptr<quillo::LanguagePickerWindow> m_picker;
    std::unique_ptr<quillo::WelcomeWindow> m_welcome;
    std::unique_ptr<quillo::AccountWindow> m_accountWindow;
    QTimer m_levels;
    int m_step = 0;
    bool m_isSpeaking = false;
};
