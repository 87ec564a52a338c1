#include "Chromium.h"

#include "Support/Async.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <fcntl.h>
#include <unistd.h>

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

constexpr auto pageLimit = 30s;

/// A pipe whose ends stay clear of the descriptors that the child's are moved to.
std::pair<int, int> makePipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw DesktopSessionError(QStringLiteral("no pipe for the browser"));
    for (int& end : ends) {
        const int moved = ::fcntl(end, F_DUPFD_CLOEXEC, 16);
        ::close(end);
        end = moved;
    }
    return {ends[0], ends[1]};
}

void writeFile(const QString& path, const QByteArray& content, QFile::Permissions more = {}) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        throw DesktopSessionError(QStringLiteral("%1 could not be written").arg(path));
    file.setPermissions(file.permissions() | more);
}

QString quoted(const QString& text) {
    // JSON's strings are JavaScript's.
    const auto list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(list.mid(1, list.size() - 2));
}

} // namespace

Chromium::Chromium(DesktopSession& session, const QUrl& origin) : m_session(session) {
    const auto profile = session.path(QStringLiteral("chromium"));
    writeFile(profile + QStringLiteral("/Default/Preferences"),
              QJsonDocument(QJsonObject{{QStringLiteral("protocol_handler"),
                                         QJsonObject{{QStringLiteral("allowed_origin_protocol_pairs"),
                                                      QJsonObject{{origin.toString(),
                                                                   QJsonObject{{QStringLiteral("quillo"), true}}}}}}}})
                  .toJson());
    const QStringList options{QStringLiteral("--user-data-dir=") + profile, QStringLiteral("--no-sandbox"),
                              QStringLiteral("--disable-dev-shm-usage")};
    // Opening a page in the session uses the running browser.
    const auto opener = session.path(QStringLiteral("browser"));
    writeFile(opener, "#!/bin/sh\nexec chromium " + options.join(u' ').toUtf8() + " \"$@\"\n", QFile::ExeOwner);
    const auto applications = session.path(QStringLiteral("home/.local/share/applications"));
    writeFile(applications + QStringLiteral("/browser.desktop"),
              "[Desktop Entry]\nType=Application\nName=Browser\nExec=" + opener.toUtf8() +
                  " %u\nMimeType=x-scheme-handler/http;x-scheme-handler/https;\n");
    writeFile(
        session.path(QStringLiteral("home/.config/mimeapps.list")),
        "[Default Applications]\nx-scheme-handler/http=browser.desktop\nx-scheme-handler/https=browser.desktop\n");

    const auto [commandsEnd, commands] = makePipe();
    const auto [answers, answersEnd] = makePipe();
    m_commands = commands;
    m_answers = answers;
    m_process.setProcessEnvironment(session.environment());
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setStandardOutputFile(session.path(QStringLiteral("chromium.log")));
    m_process.setChildProcessModifier([in = commandsEnd, out = answersEnd] {
        ::dup2(in, 3);
        ::dup2(out, 4);
    });
    m_process.start(QStringLiteral("chromium"),
                    options + QStringList{QStringLiteral("--remote-debugging-pipe"), QStringLiteral("--no-first-run"),
                                          QStringLiteral("--no-default-browser-check"), QStringLiteral("--disable-gpu"),
                                          QStringLiteral("--disable-background-networking"),
                                          QStringLiteral("--disable-component-update"),
                                          QStringLiteral("--disable-sync"), QStringLiteral("--password-store=basic"),
                                          QStringLiteral("--window-size=1000,760"), QStringLiteral("about:blank")});
    const bool isUp = m_process.waitForStarted();
    ::close(commandsEnd);
    ::close(answersEnd);
    if (!isUp)
        throw DesktopSessionError(
            QStringLiteral("the browser (package chromium) did not start: %1").arg(m_process.errorString()));
    m_notifier = std::make_unique<QSocketNotifier>(m_answers, QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { read(); });
    command(QStringLiteral("Target.setDiscoverTargets"), {{QStringLiteral("discover"), true}});
}

Chromium::~Chromium() {
    m_notifier.reset();
    ::close(m_commands);
    m_session.end(m_process);
    ::close(m_answers);
}

void Chromium::read() {
    char buffer[65536];
    const auto count = ::read(m_answers, buffer, sizeof buffer);
    if (count <= 0)
        return m_notifier->setEnabled(false);
    m_received.append(buffer, static_cast<int>(count));
    for (auto end = m_received.indexOf('\0'); end >= 0; end = m_received.indexOf('\0')) {
        const auto message = m_received.left(end);
        m_received.remove(0, end + 1);
        receive(QJsonDocument::fromJson(message).object());
    }
}

void Chromium::receive(const QJsonObject& message) {
    if (message.contains(QStringLiteral("id"))) {
        m_results.insert(message.value(QStringLiteral("id")).toInt(), message);
        return;
    }
    const auto method = message.value(QStringLiteral("method")).toString();
    const auto parameters = message.value(QStringLiteral("params")).toObject();
    if (method == u"Target.targetDestroyed")
        m_pages.remove(parameters.value(QStringLiteral("targetId")).toString());
    const auto info = parameters.value(QStringLiteral("targetInfo")).toObject();
    if (method.startsWith(QStringLiteral("Target.target")) && info.value(QStringLiteral("type")).toString() == u"page")
        m_pages.insert(info.value(QStringLiteral("targetId")).toString(), info.value(QStringLiteral("url")).toString());
}

QJsonObject Chromium::command(const QString& method, const QJsonObject& parameters, const QString& page) {
    const int id = ++m_lastId;
    QJsonObject message{
        {QStringLiteral("id"), id}, {QStringLiteral("method"), method}, {QStringLiteral("params"), parameters}};
    if (!page.isEmpty())
        message.insert(QStringLiteral("sessionId"), page);
    const auto bytes = QJsonDocument(message).toJson(QJsonDocument::Compact) + '\0';
    if (::write(m_commands, bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size() ||
        !waitUntil([&] { return m_results.contains(id); }, pageLimit))
        throw DesktopSessionError(QStringLiteral("the browser did not answer %1").arg(method));
    return m_results.take(id).value(QStringLiteral("result")).toObject();
}

bool Chromium::waitForPage(const QString& part) {
    const auto find = [&] {
        for (auto page = m_pages.begin(); page != m_pages.end(); ++page)
            if (page.value().contains(part))
                return page.key();
        return QString();
    };
    if (!waitUntil([&] { return !find().isEmpty(); }, pageLimit))
        return false;
    if (const auto target = find(); target != m_target) {
        m_target = target;
        m_attachment = command(QStringLiteral("Target.attachToTarget"),
                               {{QStringLiteral("targetId"), target}, {QStringLiteral("flatten"), true}})
                           .value(QStringLiteral("sessionId"))
                           .toString();
    }
    return waitFor(QStringLiteral("document.readyState === 'complete'"));
}

bool Chromium::waitFor(const QString& script) {
    return waitUntil([&] { return evaluate(script).toBool(); }, pageLimit);
}

QJsonValue Chromium::evaluate(const QString& script) {
    return command(QStringLiteral("Runtime.evaluate"),
                   {{QStringLiteral("expression"), script}, {QStringLiteral("returnByValue"), true}}, m_attachment)
        .value(QStringLiteral("result"))
        .toObject()
        .value(QStringLiteral("value"));
}

QUrl Chromium::address() { return QUrl(evaluate(QStringLiteral("location.href")).toString()); }

void Chromium::goTo(const QUrl& url) {
    command(QStringLiteral("Page.navigate"), {{QStringLiteral("url"), url.toString(QUrl::FullyEncoded)}}, m_attachment);
}

void Chromium::type(const QString& selector, const QString& text) {
    evaluate(QStringLiteral("document.querySelector(%1).focus()").arg(quoted(selector)));
    command(QStringLiteral("Input.insertText"), {{QStringLiteral("text"), text}}, m_attachment);
}

void Chromium::press(const QString& selector) {
    evaluate(QStringLiteral("document.querySelector(%1).focus()").arg(quoted(selector)));
    for (const auto* const type : {"keyDown", "keyUp"})
        command(QStringLiteral("Input.dispatchKeyEvent"),
                {{QStringLiteral("type"), QString::fromLatin1(type)},
                 {QStringLiteral("key"), QStringLiteral("Enter")},
                 {QStringLiteral("code"), QStringLiteral("Enter")},
                 {QStringLiteral("text"), QStringLiteral("\r")},
                 {QStringLiteral("windowsVirtualKeyCode"), 13}},
                m_attachment);
}

void Chromium::closePage() {
    command(QStringLiteral("Target.closeTarget"), {{QStringLiteral("targetId"), m_target}});
    const auto closed = std::exchange(m_target, {});
    waitUntil([&] { return !m_pages.contains(closed); });
}

void Chromium::screenshot(const QString& file) {
    const auto picture = command(QStringLiteral("Page.captureScreenshot"), {}, m_attachment);
    writeFile(file, QByteArray::fromBase64(picture.value(QStringLiteral("data")).toString().toLatin1()));
}

} // namespace quillo::test
