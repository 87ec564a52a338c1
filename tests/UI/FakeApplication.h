#pragma once

#include "Features/Application/Commands.h"
#include "Features/Recording/RecordingStore.h"
#include "Platform/WindowHints.h"
#include "UI/Foundation/UserInterfaceHooks.h"

#include <QPointF>
#include <QString>

#include <memory>
#include <optional>

namespace quillo::test {

/// An application with made-up microphones, all languages and a scripted account, which remembers what it is asked.
class FakeApplication final : public Commands {
public:
    /// With a `store` the dictation's commands go to it.
    explicit FakeApplication(RecordingStore* store = nullptr);
    FakeApplication(const FakeApplication&) = delete;
    FakeApplication& operator=(const FakeApplication&) = delete;

    void start() override { send(action::StartRecording{}); }
    void stop() override { send(action::StopRecording{}); }
    void toggle() override {
        if (m_store && m_store->state().status.isActive())
            stop();
        else
            start();
    }
    void cancel() override { send(action::CancelRecording{}); }
    void insertAgain() override {}
    [[nodiscard]] QString lastText() const override { return {}; }
    [[nodiscard]] QString status() const override { return {}; }
    void show() override {}
    void quit() override {}
    [[nodiscard]] AccountState account() const override { return accountState; }
    void signIn() override { begin(u"signIn"_qs); }
    void registerAccount() override { begin(u"registerAccount"_qs); }
    void cancelSignIn() override {
        accountRequests << u"cancelSignIn"_qs;
        accountState.isBusy = false;
    }
    void signOut() override { begin(u"signOut"_qs); }
    void deleteAccount() override { begin(u"deleteAccount"_qs); }
    void openURL(const QString&) override {}
    void deleteRecord(const QString&) override {}
    void retranscribeRecord(const QString&, const QString&) override {}
    void copyRecord(const QString&) override {}

    UserInterfaceHooks hooks;
    std::unique_ptr<WindowHints> windowHints; ///< of the display that the test runs on
    bool pillWanted = true;
    std::optional<QPointF> pillPosition;
    QString chosenLanguage;
    QStringList servedLanguages; ///< empty: all
    std::function<void()> languagesChanged;
    QStringList chosenMicrophones; ///< "" for the system's default

    AccountState accountState{.kind = AccountState::Kind::anonymous};
    QStringList accountRequests; ///< the names of the commands

    QString hotkey = u"Right Super"_qs;
    QString toggleHotkey = u"Alt+Space"_qs;
    std::optional<InterfaceConflict> hotkeyConflict;
    /// While a key is chosen: the user has pressed it; with its name, or why it cannot be.
    std::function<void(const QString& name, const QString& problem)> hotkeyChosen;
    std::function<void(bool)> hotkeyObserver; ///< empty while no trial runs

    bool isMicrophoneOpen = false;
    int microphoneTests = 0;
    bool isUnbalanced = false; ///< a test was started twice, or stopped without one
    std::function<void(float)> microphoneLevel;
    std::function<void(QString)> microphoneFailure; ///< ends the test, as the application would

    bool launchAtLogin = false;
    bool isLaunchAtLoginRefused = false;
    int finishedWelcomes = 0;

private:
    void begin(const QString& request) {
        accountRequests << request;
        accountState.isBusy = true;
        accountState.message.clear();
    }
    void send(const RecordingAction& action) {
        if (m_store)
            m_store->send(action);
    }

    RecordingStore* m_store;
};

} // namespace quillo::test
