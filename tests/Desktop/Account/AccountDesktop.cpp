#include "AccountDesktop.h"

#include "Support/Async.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

namespace quillo::test {

using namespace std::chrono_literals;

const QString AccountDesktop::email = QStringLiteral("ada@example.org");
const QString AccountDesktop::password = QStringLiteral("a long enough secret");

AccountDesktop::AccountDesktop(DesktopSession::Options options, const QString& serverOptions) : session(options) {
    auto& environment = session.environment();
    environment.insert(QStringLiteral("QUILLO_SERVER_OPTIONS"), serverOptions);
    environment.insert(QStringLiteral("PATH"),
                       QStringLiteral(QUILLO_PROGRAM_FOLDER ":") + environment.value(QStringLiteral("PATH")));
    // As an installation leaves it.
    const auto applications = session.path(QStringLiteral("home/.local/share/applications"));
    QDir().mkpath(applications);
    if (!QFile::copy(QStringLiteral(QUILLO_DESKTOP_ENTRY), applications + QStringLiteral("/org.quillo.Quillo.desktop")))
        throw DesktopSessionError(QStringLiteral("no desktop entry at " QUILLO_DESKTOP_ENTRY));
    session.run(QStringLiteral("update-desktop-database"), {applications});
    session.startQuillo({{QStringLiteral("primaryLanguage"), QStringLiteral("en")}});

    static const QRegularExpression start(QStringLiteral("🚀 Starting .* on (127\\.0\\.0\\.1:\\d+)"));
    const auto host = start.match(QString::fromUtf8(log())).captured(1);
    if (host.isEmpty() || !waitUntil([this] { return logged("Anonymous session created") > 0; }))
        throw DesktopSessionError(QStringLiteral("no session at the application's own server"));
    browser = std::make_unique<Chromium>(session, QUrl(QStringLiteral("http://") + host));
}

QByteArray AccountDesktop::log() const {
    QFile file(session.logFile());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void AccountDesktop::submitForm(bool asNew) {
    if (asNew)
        browser->type(QStringLiteral("#full_name"), QStringLiteral("Ada Lovelace"));
    browser->type(QStringLiteral("#email"), email);
    browser->type(QStringLiteral("#password"), password);
    browser->press(QStringLiteral("button[type=submit]"));
}

QString AccountDesktop::callback() {
    const auto link = QStringLiteral("document.querySelector('a.button[href^=\"quillo:\"]')");
    return browser->waitFor(QStringLiteral("!!") + link)
               ? browser->evaluate(link + QStringLiteral(".getAttribute('href')")).toString()
               : QString();
}

bool AccountDesktop::signIn(bool asNew) {
    session.quillo({asNew ? QStringLiteral("register") : QStringLiteral("sign-in")});
    if (!browser->waitForPage(asNew ? QStringLiteral("/auth/register?") : QStringLiteral("/auth/login?")))
        return false;
    submitForm(asNew);
    return waitForAccount(QStringLiteral("signed in as Ada Lovelace"));
}

bool AccountDesktop::waitForAccount(const QString& words) {
    return waitUntil([&] { return account().startsWith(words) && !account().contains(QStringLiteral("waiting")); },
                     30s);
}

} // namespace quillo::test
