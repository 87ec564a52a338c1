#include "AccountDesktop.h"

#include "Support/Async.h"
#include "Support/Files.h"

#include <QRegularExpression>

namespace quillo::test {

using namespace std::chrono_literals;

const QString AccountDesktop::email = u"ada@example.org"_qs;
const QString AccountDesktop::password = u"a long enough secret"_qs;

AccountDesktop::AccountDesktop(DesktopSession::Options options, const QString& serverOptions) : session(options) {
    auto& environment = session.environment();
    environment.insert(u"QUILLO_SERVER_OPTIONS"_qs, serverOptions);
    environment.insert(u"PATH"_qs, QStringLiteral(QUILLO_PROGRAM_FOLDER ":") + environment.value(u"PATH"_qs));
    // As an installation leaves it.
    const auto applications = session.path(u"home/.local/share/applications"_qs);
    QDir().mkpath(applications);
    if (!QFile::copy(QStringLiteral(QUILLO_DESKTOP_ENTRY), applications + u"/org.quillo.Quillo.desktop"_qs))
        throw DesktopSessionError(QStringLiteral("no desktop entry at " QUILLO_DESKTOP_ENTRY));
    session.run(u"update-desktop-database"_qs, {applications});
    session.startQuillo({{u"primaryLanguage"_qs, u"en"_qs}});

    static const QRegularExpression start(u"🚀 Starting .* on (127\\.0\\.0\\.1:\\d+)"_qs);
    const auto host = start.match(QString::fromUtf8(contentOf(session.logFile()))).captured(1);
    if (host.isEmpty() || !waitUntil([this] { return logged("Anonymous session created") > 0; }))
        throw DesktopSessionError(u"no session at the application's own server"_qs);
    browser = std::make_unique<Chromium>(session, QUrl(u"http://"_qs + host));
}

void AccountDesktop::submitForm(bool asNew) {
    if (asNew)
        browser->type(u"#full_name"_qs, u"Ada Lovelace"_qs);
    browser->type(u"#email"_qs, email);
    browser->type(u"#password"_qs, password);
    browser->press(u"button[type=submit]"_qs);
}

QString AccountDesktop::callback() {
    const auto link = u"document.querySelector('a.button[href^=\"quillo:\"]')"_qs;
    return browser->waitFor(u"!!"_qs + link) ? browser->evaluate(link + u".getAttribute('href')"_qs).toString()
                                             : QString();
}

bool AccountDesktop::signIn(bool asNew) {
    session.quillo({asNew ? u"register"_qs : u"sign-in"_qs});
    if (!browser->waitForPage(asNew ? u"/auth/register?"_qs : u"/auth/login?"_qs))
        return false;
    submitForm(asNew);
    return waitForAccount(u"signed in as Ada Lovelace"_qs);
}

bool AccountDesktop::waitForAccount(const QString& words) {
    return waitUntil([&] { return account().startsWith(words) && !account().contains(u"waiting"_qs); }, 30s);
}

} // namespace quillo::test
