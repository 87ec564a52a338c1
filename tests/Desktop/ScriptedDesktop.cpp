#include "ScriptedDesktop.h"

#include "Support/Async.h"

#include <QJsonDocument>

namespace quillo::test {

using namespace std::chrono_literals;

ScriptedDesktop::ScriptedDesktop(Options options)
    : session(DesktopSession::Options{.displayOptions = options.display}),
      m_service([this](const auto&) { return answer(); }) {
    auto& environment = session.environment();
    if (!options.serverHost.isEmpty())
        environment.insert(u"QUILLO_SERVER_HOST"_qs, options.serverHost);
    environment.insert(u"QUILLO_SERVER_OPTIONS"_qs,
                       u"--recogniser http --recogniser-url %1"_qs.arg(QString::fromStdString(m_service.url())));
    environment.insert(u"QUILLO_RECOGNISER_KEY"_qs, u"key"_qs);
    environment.insert(u"QT_LINUX_ACCESSIBILITY_ALWAYS_ON"_qs, u"1"_qs);
    m_quillo = &session.startQuillo({{u"smartSpacing"_qs, u"false"_qs}}, options.wrapper);
    if (!options.language.isEmpty())
        set("primaryLanguage", options.language);
    m_speech = session.synthesize(u"yes"_qs);
}

ScriptedDesktop::~ScriptedDesktop() { session.end(*m_quillo); }

quillo::server::test::StandInService::Reply ScriptedDesktop::answer() {
    const std::lock_guard lock(m_mutex);
    const QJsonObject object{{u"text"_qs, m_says}};
    return {.body = QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString(), .never = m_holdsAnswers};
}

void ScriptedDesktop::holdAnswers(bool on) {
    const std::lock_guard lock(m_mutex);
    m_holdsAnswers = on;
}

void ScriptedDesktop::set(const char* key, const QString& value) {
    session.quillo({u"settings"_qs, u"set"_qs, QString::fromLatin1(key), value});
}

void ScriptedDesktop::say(const QString& text) {
    const std::lock_guard lock(m_mutex);
    m_says = text;
}

void ScriptedDesktop::press() {
    waitUntil([&] { return monotonicNow() - m_released > 450ms; });
    session.pressKey(DesktopSession::rightSuper);
}

void ScriptedDesktop::rest() { m_released = monotonicNow(); }

void ScriptedDesktop::release() { m_released = session.releaseKey(DesktopSession::rightSuper); }

QJsonObject ScriptedDesktop::dictate(const QString& text, const std::function<void()>& meanwhile) {
    say(text);
    const auto before = lastRunId();
    press();
    EXPECT_TRUE(session.waitForStatus(u"recording"_qs)) << "the recording did not start";
    speak();
    meanwhile();
    release();
    return awaitRun(before);
}

QJsonObject ScriptedDesktop::awaitRun(const QString& before, std::chrono::milliseconds watchdog) {
    QJsonObject run;
    const bool ended = waitUntil(
        [&] {
            run = lastRun();
            return run.value(u"id"_qs).toString() != before;
        },
        watchdog);
    EXPECT_TRUE(ended) << "the dictation did not end";
    return ended ? run : QJsonObject();
}

} // namespace quillo::test
