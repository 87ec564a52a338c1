#include "Targets/TargetWindow.h"

#include "Support/Async.h"
#include "Support/Files.h"

#include <QJsonDocument>

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

/// The text in the last whole line of a report.
QByteArray lastReported(const QString& path) {
    const auto lines = contentOf(path).split('\n');
    if (lines.size() < 2)
        return {};
    const auto line = QJsonDocument::fromJson(lines.at(lines.size() - 2));
    return line.object().value(u"text"_qs).toString().toUtf8();
}

QString windowNamed(DesktopSession& session, const QString& pattern) {
    QString id;
    const auto found = [&] {
        int code = 0;
        const auto output =
            session.run(u"xdotool"_qs, {u"search"_qs, u"--onlyvisible"_qs, u"--name"_qs, pattern}, &code);
        id = output.trimmed().section(u'\n', -1);
        return code == 0 && !id.isEmpty();
    };
    if (!waitUntil(found, 30s))
        throw DesktopSessionError(u"no window named %1 came up"_qs.arg(pattern));
    return id;
}

QString targetsFile(const QString& name) { return QStringLiteral(QUILLO_TARGETS_FOLDER "/") + name; }

QString unique(const QString& name) {
    static int number = 0;
    return u"%1-%2"_qs.arg(name).arg(++number);
}

} // namespace

TargetWindow openGtkField(DesktopSession& session, FieldKind kind) {
    const auto title = unique(u"GTK"_qs);
    const auto report = session.path(title + u".jsonl"_qs);
    const auto kindName = kind == FieldKind::area       ? u"area"_qs
                          : kind == FieldKind::password ? u"password"_qs
                                                        : u"button"_qs;
    auto& process =
        session.launch(title, u"/usr/bin/python3"_qs, {targetsFile(u"gtk-field.py"_qs), report, title, kindName});
    return {u"GTK"_qs, windowNamed(session, u"^%1$"_qs.arg(title)), [report] { return lastReported(report); },
            &process};
}

TargetWindow openQtField(DesktopSession& session, FieldKind kind) {
    const auto title = unique(u"Qt"_qs);
    const auto report = session.path(title + u".jsonl"_qs);
    QStringList arguments{u"--report"_qs, report, u"--title"_qs, title};
    if (kind == FieldKind::password)
        arguments << u"--password"_qs;
    if (kind == FieldKind::button)
        arguments << u"--no-field"_qs;
    auto& process = session.launch(title, QStringLiteral(QUILLO_PROGRAM_FOLDER "/quillo-text-field"), arguments);
    return {u"Qt"_qs, windowNamed(session, u"^%1$"_qs.arg(title)), [report] { return lastReported(report); }, &process};
}

TargetWindow openTerminal(DesktopSession& session) {
    const auto title = unique(u"Terminal"_qs);
    const auto file = session.path(title + u".bytes"_qs);
    // Without echo and line editing: every byte counts.
    auto& process = session.launch(title, u"xterm"_qs,
                                   {u"-u8"_qs, u"-T"_qs, title, u"-e"_qs, u"sh"_qs, u"-c"_qs,
                                    u"stty raw -echo; : > '%1'; exec cat > '%1'"_qs.arg(file)});
    TargetWindow target{u"xterm"_qs, windowNamed(session, u"^%1$"_qs.arg(title)), [file] { return contentOf(file); },
                        &process};
    if (!waitUntil([&] { return QFile::exists(file); }, 20s))
        throw DesktopSessionError(u"the terminal's program did not start"_qs);
    return target;
}

TargetWindow openBrowser(DesktopSession& session, FieldKind kind) {
    const auto name = unique(u"browser"_qs);
    const auto page = u"file://"_qs + targetsFile(u"browser-field.html"_qs) +
                      (kind == FieldKind::password ? u"#password"_qs : QString());
    // The tests may run as root, whom the browser's sandbox refuses; the page is our own file.
    const auto options = u"--no-sandbox --no-first-run --no-default-browser-check --disable-gpu --disable-extensions "
                         u"--disable-background-networking --disable-component-update --password-store=basic "
                         u"--force-renderer-accessibility"_qs;
    auto& process = session.launch(name, u"chromium"_qs,
                                   options.split(u' ') +
                                       QStringList{u"--user-data-dir="_qs + session.path(name), u"--app="_qs + page});
    const auto id = windowNamed(session, u"^Q:"_qs);
    const auto title = [&session, id] { return session.run(u"xdotool"_qs, {u"getwindowname"_qs, id}).trimmed(); };
    return {u"browser"_qs, id,
            [title] { return QByteArray::fromPercentEncoding(title().section(u':', 1, 1).toUtf8()); }, &process,
            // The window has the focus some time before the page in it.
            [title] { return title().section(u':', 2, 2) == u"focus"; }};
}

void activate(DesktopSession& session, const TargetWindow& target) {
    const auto focused = [&] {
        // Asked for again: a window manager that has not seen the window yet forgets the request.
        if (session.shell(u"xdotool getactivewindow"_qs).trimmed() != target.id) {
            session.run(u"xdotool"_qs, {u"windowactivate"_qs, target.id});
            return false;
        }
        return session.shell(u"xdotool getwindowfocus"_qs).trimmed() != u"1" && (!target.hasFocus || target.hasFocus());
    };
    if (!waitUntil(focused, 30s))
        throw DesktopSessionError(u"%1 did not get the focus"_qs.arg(target.name));
}

QString clipboardFingerprint(DesktopSession& session) {
    const auto sums = u"for t in UTF8_STRING text/html image/png; do printf '%s=' $t; "
                      u"timeout 5 xclip -selection clipboard -t $t -o 2>/dev/null | sha1sum | cut -c 1-8; done"_qs;
    return session.shell(sums).simplified();
}

QProcess& copySeveralFormats(DesktopSession& session) {
    const auto name = unique(u"clipboard-owner"_qs);
    auto& process = session.launch(name, QStringLiteral(QUILLO_PROGRAM_FOLDER "/quillo-clipboard-owner"), {});
    if (!waitUntil([&] { return contentOf(session.path(name + u".log"_qs)).contains("copied"); }, 20s))
        throw DesktopSessionError(u"the clipboard's owner did not start"_qs);
    return process;
}

QString keyboardMapping(DesktopSession& session) { return session.shell(u"xmodmap -pke"_qs); }

} // namespace quillo::test
