#include "Chromium.h"

#include "Support/Async.h"
#include "Support/Files.h"

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
        throw DesktopSessionError(u"no pipe for the browser"_qs);
    for (int& end : ends) {
        const int moved = ::fcntl(end, F_DUPFD_CLOEXEC, 16);
        ::close(end);
        end = moved;
    }
    return {ends[0], ends[1]};
}

QString quoted(const QString& text) {
    // JSON's strings are JavaScript's.
    const auto list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(list.mid(1, list.size() - 2));
}

} // namespace

Chromium::Chromium(DesktopSession& session, const QUrl& origin) : m_session(session) {
    const auto profile = session.path(u"chromium"_qs);
    writeFile(profile + u"/Default/Preferences"_qs, R"({"protocol_handler": {"allowed_origin_protocol_pairs": {")" +
                                                        origin.toString().toUtf8() + R"(": {"quillo": true}}}})");
    const QStringList options{u"--user-data-dir="_qs + profile, u"--no-sandbox"_qs, u"--disable-dev-shm-usage"_qs};
    // Opening a page in the session uses the running browser.
    const auto opener = session.path(u"browser"_qs);
    writeFile(opener, "#!/bin/sh\nexec chromium " + options.join(u' ').toUtf8() + " \"$@\"\n", QFile::ExeOwner);
    const auto applications = session.path(u"home/.local/share/applications"_qs);
    writeFile(applications + u"/browser.desktop"_qs,
              "[Desktop Entry]\nType=Application\nName=Browser\nExec=" + opener.toUtf8() +
                  " %u\nMimeType=x-scheme-handler/http;x-scheme-handler/https;\n");
    writeFile(
        session.path(u"home/.config/mimeapps.list"_qs),
        "[Default Applications]\nx-scheme-handler/http=browser.desktop\nx-scheme-handler/https=browser.desktop\n");

    const auto [commandsEnd, commands] = makePipe();
    const auto [answers, answersEnd] = makePipe();
    m_commands = commands;
    m_answers = answers;
    m_process.setProcessEnvironment(session.environment());
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setStandardOutputFile(session.path(u"chromium.log"_qs));
    m_process.setChildProcessModifier([in = commandsEnd, out = answersEnd] {
        ::dup2(in, 3);
        ::dup2(out, 4);
    });
    const auto quiet = u"--remote-debugging-pipe --no-first-run --no-default-browser-check --disable-gpu "
                       u"--disable-background-networking --disable-component-update --disable-sync "
                       u"--password-store=basic --window-size=1000,760 about:blank"_qs;
    m_process.start(u"chromium"_qs, options + quiet.split(u' '));
    const bool isUp = m_process.waitForStarted();
    ::close(commandsEnd);
    ::close(answersEnd);
    if (!isUp)
        throw DesktopSessionError(u"the browser (package chromium) did not start: %1"_qs.arg(m_process.errorString()));
    m_notifier = std::make_unique<QSocketNotifier>(m_answers, QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { read(); });
    command(u"Target.setDiscoverTargets"_qs, {{u"discover"_qs, true}});
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
    if (message.contains(u"id"_qs)) {
        m_results.insert(message.value(u"id"_qs).toInt(), message);
        return;
    }
    const auto method = message.value(u"method"_qs).toString();
    const auto parameters = message.value(u"params"_qs).toObject();
    if (method == u"Target.targetDestroyed")
        m_pages.remove(parameters.value(u"targetId"_qs).toString());
    const auto info = parameters.value(u"targetInfo"_qs).toObject();
    if (method.startsWith(u"Target.target"_qs) && info.value(u"type"_qs).toString() == u"page")
        m_pages.insert(info.value(u"targetId"_qs).toString(), info.value(u"url"_qs).toString());
}

QJsonObject Chromium::command(const QString& method, const QJsonObject& parameters, const QString& page) {
    const int id = ++m_lastId;
    QJsonObject message{{u"id"_qs, id}, {u"method"_qs, method}, {u"params"_qs, parameters}};
    if (!page.isEmpty())
        message.insert(u"sessionId"_qs, page);
    const auto bytes = QJsonDocument(message).toJson(QJsonDocument::Compact) + '\0';
    if (::write(m_commands, bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size() ||
        !waitUntil([&] { return m_results.contains(id); }, pageLimit))
        throw DesktopSessionError(u"the browser did not answer %1"_qs.arg(method));
    return m_results.take(id).value(u"result"_qs).toObject();
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
        m_attachment = command(u"Target.attachToTarget"_qs, {{u"targetId"_qs, target}, {u"flatten"_qs, true}})
                           .value(u"sessionId"_qs)
                           .toString();
    }
    return waitFor(u"document.readyState === 'complete'"_qs);
}

bool Chromium::waitFor(const QString& script) {
    return waitUntil([&] { return evaluate(script).toBool(); }, pageLimit);
}

QJsonValue Chromium::evaluate(const QString& script) {
    return command(u"Runtime.evaluate"_qs, {{u"expression"_qs, script}, {u"returnByValue"_qs, true}}, m_attachment)
        .value(u"result"_qs)
        .toObject()
        .value(u"value"_qs);
}

QUrl Chromium::address() { return QUrl(evaluate(u"location.href"_qs).toString()); }

void Chromium::goTo(const QUrl& url) {
    command(u"Page.navigate"_qs, {{u"url"_qs, url.toString(QUrl::FullyEncoded)}}, m_attachment);
}

void Chromium::type(const QString& selector, const QString& text) {
    evaluate(u"document.querySelector(%1).focus()"_qs.arg(quoted(selector)));
    command(u"Input.insertText"_qs, {{u"text"_qs, text}}, m_attachment);
}

void Chromium::press(const QString& selector) {
    evaluate(u"document.querySelector(%1).focus()"_qs.arg(quoted(selector)));
    for (const auto* const type : {"keyDown", "keyUp"})
        command(u"Input.dispatchKeyEvent"_qs,
                {{u"type"_qs, QString::fromLatin1(type)},
                 {u"key"_qs, u"Enter"_qs},
                 {u"code"_qs, u"Enter"_qs},
                 {u"text"_qs, u"\r"_qs},
                 {u"windowsVirtualKeyCode"_qs, 13}},
                m_attachment);
}

void Chromium::closePage() {
    command(u"Target.closeTarget"_qs, {{u"targetId"_qs, m_target}});
    const auto closed = std::exchange(m_target, {});
    waitUntil([&] { return !m_pages.contains(closed); });
}

void Chromium::screenshot(const QString& file) {
    const auto picture = command(u"Page.captureScreenshot"_qs, {}, m_attachment);
    writeFile(file, QByteArray::fromBase64(picture.value(u"data"_qs).toString().toLatin1()));
}

} // namespace quillo::test
