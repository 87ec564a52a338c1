#include "ScriptedDesktop.h"

#include "Support/Async.h"

#include <QFile>
#include <QJsonDocument>

namespace quillo::test {

using namespace std::chrono_literals;

ScriptedDesktop::ScriptedDesktop(Options options)
    : session(DesktopSession::Options{.displayOptions = options.display}),
      m_service([this](const auto&) { return answer(); }) {
    auto& environment = session.environment();
    if (!options.serverHost.isEmpty())
        environment.insert(QStringLiteral("QUILLO_SERVER_HOST"), options.serverHost);
    environment.insert(
        QStringLiteral("QUILLO_SERVER_OPTIONS"),
        QStringLiteral("--recogniser http --recogniser-url %1").arg(QString::fromStdString(m_service.url())));
    environment.insert(QStringLiteral("QUILLO_RECOGNISER_KEY"), QStringLiteral("key"));
    environment.insert(QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"), QStringLiteral("1"));
    m_quillo = &session.startQuillo({{QStringLiteral("smartSpacing"), QStringLiteral("false")}}, options.wrapper);
    if (!options.language.isEmpty())
        set("primaryLanguage", options.language);
    m_speech = session.synthesize(QStringLiteral("yes"));
}

ScriptedDesktop::~ScriptedDesktop() { session.end(*m_quillo); }

quillo::server::test::StandInService::Reply ScriptedDesktop::answer() {
    const std::lock_guard lock(m_mutex);
    const QJsonObject object{{QStringLiteral("text"), m_says}};
    return {.body = QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString(), .never = m_holdsAnswers};
}

void ScriptedDesktop::holdAnswers(bool on) {
    const std::lock_guard lock(m_mutex);
    m_holdsAnswers = on;
}

void ScriptedDesktop::set(const char* key, const QString& value) {
    session.quillo({QStringLiteral("settings"), QStringLiteral("set"), QString::fromLatin1(key), value});
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

QJsonObject ScriptedDesktop::dictate(const QString& text) {
    say(text);
    const auto before = lastRunId();
    press();
    EXPECT_TRUE(session.waitForStatus(QStringLiteral("recording"))) << "the recording did not start";
    speak();
    release();
    return awaitRun(before);
}

QJsonObject ScriptedDesktop::awaitRun(const QString& before, std::chrono::milliseconds watchdog) {
    QJsonObject run;
    const bool ended = waitUntil(
        [&] {
            run = lastRun();
            return run.value(QStringLiteral("id")).toString() != before;
        },
        watchdog);
    EXPECT_TRUE(ended) << "the dictation did not end";
    return ended ? run : QJsonObject();
}

QJsonObject ScriptedDesktop::lastRun() { return session.status().value(QStringLiteral("lastRun")).toObject(); }

QString ScriptedDesktop::lastRunId() { return lastRun().value(QStringLiteral("id")).toString(); }

int ScriptedDesktop::logged(const QString& words) {
    QFile log(session.logFile());
    return log.open(QIODevice::ReadOnly) ? static_cast<int>(QString::fromUtf8(log.readAll()).count(words)) : 0;
}

} // namespace quillo::test
