#pragma once

#include "DesktopSession.h"
#include "Server/Transcription/Support/StandInService.h"

#include <gtest/gtest.h>

#include <mutex>

namespace quillo::test {

/// A session in which Quillo runs and hears what the test says: sound, keys, server and delivery are real, the words
/// are the test's.
class ScriptedDesktop {
public:
    struct Options {
        QString serverHost;          ///< an address of the test's choice; empty: the program's own server
        QString language = u"en"_qs; ///< empty: none has ever been chosen
        QStringList wrapper;         ///< what the program is started through
        QStringList display;         ///< further options of the X server
    };
    ScriptedDesktop() : ScriptedDesktop(Options{}) {}
    /// Starts everything; the smart spacing is off, for the text is compared byte for byte.
    explicit ScriptedDesktop(Options options);
    ~ScriptedDesktop();
    ScriptedDesktop(const ScriptedDesktop&) = delete;
    ScriptedDesktop& operator=(const ScriptedDesktop&) = delete;

    DesktopSession session;

    [[nodiscard]] QProcess& quillo() { return *m_quillo; }
    void set(const char* key, const QString& value);

    /// What is recognised from now on.
    void say(const QString& text);
    /// While on, what is asked of the recogniser is not answered.
    void holdAnswers(bool on);
    /// Presses the hold key, later than a double tap would be.
    void press();
    void release();
    /// The application may have learnt only now of the release, as when the keyboard was gone: the next press waits as
    /// after any, so that the two do not form a double tap.
    void rest();
    /// Plays something that is recognised.
    void speak() { session.play(m_speech); }
    /// Holds the key while `text` is said and `meanwhile` happens, waits until the run has ended and returns its
    /// report, `lastRun` of the status.
    QJsonObject dictate(
        const QString& text, const std::function<void()>& meanwhile = [] {});
    /// Waits until a run other than `before` is reported; returns its report, empty when none was.
    QJsonObject awaitRun(const QString& before, std::chrono::milliseconds watchdog = std::chrono::seconds(30));
    QJsonObject lastRun() { return session.lastRun(); }
    QString lastRunId() { return lastRun().value(u"id"_qs).toString(); }

    /// How often `words` occur in the log.
    int logged(const QString& words) { return session.logged(words); }

private:
    quillo::server::test::StandInService::Reply answer();
    std::mutex m_mutex;
    QString m_says;
    bool m_holdsAnswers = false;
    quillo::server::test::StandInService m_service;
    QProcess* m_quillo = nullptr;
    QString m_speech;
    std::chrono::nanoseconds m_released{};
};

/// The tests of one suite in one session: it is what takes long to come up.
class OnOneDesktop : public testing::Test {
protected:
    static void SetUpTestSuite() { s_desktop = std::make_unique<ScriptedDesktop>(); }
    static void TearDownTestSuite() { s_desktop.reset(); }
    void TearDown() override {
        if (HasFailure())
            session.explainFailure();
    }

    static inline std::unique_ptr<ScriptedDesktop> s_desktop;
    ScriptedDesktop& desktop = *s_desktop;
    DesktopSession& session = desktop.session;
};

} // namespace quillo::test
