#include "Targets/TargetWindow.h"

#include "Support/Async.h"

#include <QFile>
#include <QJsonDocument>

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The text in the last whole line of a report.
QByteArray lastReported(const QString& path) {
    const auto lines = readAll(path).split('\n');
    if (lines.size() < 2)
        return {};
    const auto line = QJsonDocument::fromJson(lines.at(lines.size() - 2));
    return line.object().value(QStringLiteral("text")).toString().toUtf8();
}

QString windowNamed(DesktopSession& session, const QString& pattern) {
    QString id;
    const auto found = [&] {
        int code = 0;
        const auto output = session.run(
            QStringLiteral("xdotool"),
            {QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"), pattern}, &code);
        id = output.trimmed().section(u'\n', -1);
        return code == 0 && !id.isEmpty();
    };
    if (!waitUntil(found, 30s))
        throw DesktopSessionError(QStringLiteral("no window named %1 came up").arg(pattern));
    return id;
}

QString targetsFile(const QString& name) { return QStringLiteral(QUILLO_TARGETS_FOLDER "/") + name; }

QString unique(const QString& name) {
    static int number = 0;
    return QStringLiteral("%1-%2").arg(name).arg(++number);
}

} // namespace

TargetWindow openGtkField(DesktopSession& session, FieldKind kind) {
    const auto title = unique(QStringLiteral("GTK"));
    const auto report = session.path(title + QStringLiteral(".jsonl"));
    const auto kindName = kind == FieldKind::area       ? QStringLiteral("area")
                          : kind == FieldKind::password ? QStringLiteral("password")
                                                        : QStringLiteral("button");
    auto& process = session.launch(title, QStringLiteral("/usr/bin/python3"),
                                   {targetsFile(QStringLiteral("gtk-field.py")), report, title, kindName});
    return {QStringLiteral("GTK"), windowNamed(session, QStringLiteral("^%1$").arg(title)),
            [report] { return lastReported(report); }, &process};
}

TargetWindow openQtField(DesktopSession& session, FieldKind kind) {
    const auto title = unique(QStringLiteral("Qt"));
    const auto report = session.path(title + QStringLiteral(".jsonl"));
    QStringList arguments{QStringLiteral("--report"), report, QStringLiteral("--title"), title};
    if (kind == FieldKind::password)
        arguments << QStringLiteral("--password");
    if (kind == FieldKind::button)
        arguments << QStringLiteral("--no-field");
    auto& process = session.launch(title, QStringLiteral(QUILLO_PROGRAM_FOLDER "/quillo-text-field"), arguments);
    return {QStringLiteral("Qt"), windowNamed(session, QStringLiteral("^%1$").arg(title)),
            [report] { return lastReported(report); }, &process};
}

TargetWindow openTerminal(DesktopSession& session) {
    const auto title = unique(QStringLiteral("Terminal"));
    const auto file = session.path(title + QStringLiteral(".bytes"));
    // Without echo and line editing: every byte counts.
    auto& process =
        session.launch(title, QStringLiteral("xterm"),
                       {QStringLiteral("-u8"), QStringLiteral("-T"), title, QStringLiteral("-e"), QStringLiteral("sh"),
                        QStringLiteral("-c"), QStringLiteral("stty raw -echo; : > '%1'; exec cat > '%1'").arg(file)});
    TargetWindow target{QStringLiteral("xterm"), windowNamed(session, QStringLiteral("^%1$").arg(title)),
                        [file] { return readAll(file); }, &process};
    if (!waitUntil([&] { return QFile::exists(file); }, 20s))
        throw DesktopSessionError(QStringLiteral("the terminal's program did not start"));
    return target;
}

TargetWindow openBrowser(DesktopSession& session, FieldKind kind) {
    const auto name = unique(QStringLiteral("browser"));
    const auto page = QStringLiteral("file://") + targetsFile(QStringLiteral("browser-field.html")) +
                      (kind == FieldKind::password ? QStringLiteral("#password") : QString());
    // The tests may run as root, whom the browser's sandbox refuses; the page is our own file.
    auto& process = session.launch(
        name, QStringLiteral("chromium"),
        {QStringLiteral("--no-sandbox"), QStringLiteral("--no-first-run"), QStringLiteral("--no-default-browser-check"),
         QStringLiteral("--disable-gpu"), QStringLiteral("--disable-extensions"),
         QStringLiteral("--disable-background-networking"), QStringLiteral("--disable-component-update"),
         QStringLiteral("--password-store=basic"), QStringLiteral("--force-renderer-accessibility"),
         QStringLiteral("--user-data-dir=") + session.path(name), QStringLiteral("--app=") + page});
    const auto id = windowNamed(session, QStringLiteral("^Q:"));
    const auto title = [&session, id] {
        return session.run(QStringLiteral("xdotool"), {QStringLiteral("getwindowname"), id}).trimmed();
    };
    return {QStringLiteral("browser"), id,
            [title] { return QByteArray::fromPercentEncoding(title().section(u':', 1, 1).toUtf8()); }, &process,
            // The window has the focus some time before the page in it.
            [title] { return title().section(u':', 2, 2) == u"focus"; }};
}

void activate(DesktopSession& session, const TargetWindow& target) {
    const auto focused = [&] {
        // Asked for again: a window manager that has not seen the window yet forgets the request.
        if (session.run(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")}).trimmed() != target.id) {
            session.run(QStringLiteral("xdotool"), {QStringLiteral("windowactivate"), target.id});
            return false;
        }
        return session.run(QStringLiteral("xdotool"), {QStringLiteral("getwindowfocus")}).trimmed() != u"1" &&
               (!target.hasFocus || target.hasFocus());
    };
    if (!waitUntil(focused, 30s))
        throw DesktopSessionError(QStringLiteral("%1 did not get the focus").arg(target.name));
}

QString clipboardFingerprint(DesktopSession& session) {
    return session
        .run(QStringLiteral("sh"),
             {QStringLiteral("-c"),
              QStringLiteral("for t in UTF8_STRING text/html image/png; do printf '%s=' $t; "
                             "timeout 5 xclip -selection clipboard -t $t -o 2>/dev/null | sha1sum | cut -c 1-8; done")})
        .simplified();
}

QProcess& copySeveralFormats(DesktopSession& session) {
    const auto name = unique(QStringLiteral("clipboard-owner"));
    auto& process = session.launch(name, QStringLiteral(QUILLO_PROGRAM_FOLDER "/quillo-clipboard-owner"), {});
    if (!waitUntil([&] { return readAll(session.path(name + QStringLiteral(".log"))).contains("copied"); }, 20s))
        throw DesktopSessionError(QStringLiteral("the clipboard's owner did not start"));
    return process;
}

QString keyboardMapping(DesktopSession& session) {
    return session.run(QStringLiteral("xmodmap"), {QStringLiteral("-pke")});
}

} // namespace quillo::test
