#include "Platform/Linux/LoginItem/AutostartEntry.h"

#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>
#include <glib.h>

namespace quillo {

namespace {

constexpr auto group = G_KEY_FILE_DESKTOP_GROUP;
constexpr auto gnomeEnabled = "X-GNOME-Autostart-enabled";

struct Free {
    void operator()(char* text) const { g_free(text); }
    void operator()(char** texts) const { g_strfreev(texts); }
};
using Text = std::unique_ptr<char, Free>;

QString execLine(const QString& program, const QStringList& arguments) {
    QStringList words{quotedExecWord(program)};
    for (const auto& argument : arguments)
        words << quotedExecWord(argument);
    return words.join(QLatin1Char(' '));
}

bool isProgram(const QString& name) {
    if (name.startsWith(QLatin1Char('/')))
        return QFileInfo(name).isFile() && QFileInfo(name).isExecutable();
    return !QStandardPaths::findExecutable(name).isEmpty();
}

} // namespace

QString quotedExecWord(const QString& word) {
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    static const QString escaped = QStringLiteral("\"`$\\");
    const bool quote =
        word.isEmpty() || std::any_of(word.begin(), word.end(), [](QChar c) { return reserved.contains(c); });
    QString result;
    for (const QChar c : word) {
        if (quote && escaped.contains(c))
            result += QLatin1Char('\\');
        result += c;
        // Double the percent sign: a single one begins a field code.
        if (c == QLatin1Char('%'))
            result += c;
    }
    return quote ? QLatin1Char('"') + result + QLatin1Char('"') : result;
}

void AutostartEntry::Closer::operator()(GKeyFile* file) const { g_key_file_unref(file); }

AutostartEntry AutostartEntry::create(const QString& program, const QStringList& arguments) {
    AutostartEntry entry(g_key_file_new());
    auto* file = entry.m_file.get();
    g_key_file_set_string(file, group, G_KEY_FILE_DESKTOP_KEY_TYPE, G_KEY_FILE_DESKTOP_TYPE_APPLICATION);
    g_key_file_set_string(file, group, G_KEY_FILE_DESKTOP_KEY_NAME, "Quillo");
    g_key_file_set_string(file, group, G_KEY_FILE_DESKTOP_KEY_ICON, "quillo");
    entry.setCommand(program, arguments);
    g_key_file_set_boolean(file, group, G_KEY_FILE_DESKTOP_KEY_TERMINAL, FALSE);
    return entry;
}

std::optional<AutostartEntry> AutostartEntry::parse(const QByteArray& content) {
    AutostartEntry entry(g_key_file_new());
    const auto flags = static_cast<GKeyFileFlags>(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS);
    if (!g_key_file_load_from_data(entry.m_file.get(), content.constData(), static_cast<gsize>(content.size()), flags,
                                   nullptr) ||
        !g_key_file_has_group(entry.m_file.get(), group))
        return std::nullopt;
    return entry;
}

bool AutostartEntry::isFlag(const char* key, bool wanted) const {
    GError* error = nullptr;
    const bool value = g_key_file_get_boolean(m_file.get(), group, key, &error) != FALSE;
    const bool known = error == nullptr;
    g_clear_error(&error);
    return known && value == wanted;
}

QString AutostartEntry::text(const char* key) const {
    const Text value(g_key_file_get_string(m_file.get(), group, key, nullptr));
    return QString::fromUtf8(value.get());
}

QStringList AutostartEntry::list(const char* key) const {
    const std::unique_ptr<char*, Free> values(g_key_file_get_string_list(m_file.get(), group, key, nullptr, nullptr));
    QStringList result;
    for (char** value = values.get(); value && *value; ++value)
        result << QString::fromUtf8(*value);
    return result;
}

bool AutostartEntry::isSwitchedOff(const QStringList& desktops) const {
    if (isFlag(G_KEY_FILE_DESKTOP_KEY_HIDDEN, true) || isFlag(gnomeEnabled, false))
        return true;
    const auto namesThis = [&](const QStringList& names) {
        return std::any_of(names.begin(), names.end(), [&](const QString& name) { return desktops.contains(name); });
    };
    const auto only = list(G_KEY_FILE_DESKTOP_KEY_ONLY_SHOW_IN);
    return (!only.isEmpty() && !namesThis(only)) || namesThis(list(G_KEY_FILE_DESKTOP_KEY_NOT_SHOW_IN));
}

QStringList AutostartEntry::command() const {
    char** words = nullptr;
    if (!g_shell_parse_argv(text(G_KEY_FILE_DESKTOP_KEY_EXEC).toUtf8().constData(), nullptr, &words, nullptr))
        return {};
    const std::unique_ptr<char*, Free> owned(words);
    QStringList result;
    for (; *words; ++words)
        result << QString::fromUtf8(*words).replace(QStringLiteral("%%"), QStringLiteral("%"));
    return result;
}

bool AutostartEntry::canStart() const {
    const auto words = command();
    const auto condition = text(G_KEY_FILE_DESKTOP_KEY_TRY_EXEC);
    return !words.isEmpty() && isProgram(words.constFirst()) && (condition.isEmpty() || isProgram(condition));
}

void AutostartEntry::setCommand(const QString& program, const QStringList& arguments) {
    g_key_file_set_string(m_file.get(), group, G_KEY_FILE_DESKTOP_KEY_EXEC,
                          execLine(program, arguments).toUtf8().constData());
    // With TryExec, sessions skip the entry when the program is gone instead of failing at every login.
    g_key_file_set_string(m_file.get(), group, G_KEY_FILE_DESKTOP_KEY_TRY_EXEC, program.toUtf8().constData());
}

void AutostartEntry::removeSwitches() {
    g_key_file_remove_key(m_file.get(), group, G_KEY_FILE_DESKTOP_KEY_HIDDEN, nullptr);
    g_key_file_remove_key(m_file.get(), group, gnomeEnabled, nullptr);
}

void AutostartEntry::switchOn() {
    removeSwitches();
    g_key_file_remove_key(m_file.get(), group, G_KEY_FILE_DESKTOP_KEY_ONLY_SHOW_IN, nullptr);
    g_key_file_remove_key(m_file.get(), group, G_KEY_FILE_DESKTOP_KEY_NOT_SHOW_IN, nullptr);
}

void AutostartEntry::switchOff() { g_key_file_set_boolean(m_file.get(), group, G_KEY_FILE_DESKTOP_KEY_HIDDEN, TRUE); }

bool AutostartEntry::isPlain() const {
    const auto words = command();
    if (words.isEmpty())
        return false;
    auto copy = parse(content());
    copy->removeSwitches();
    return copy->content() == create(words.constFirst(), words.mid(1)).content();
}

QByteArray AutostartEntry::content() const {
    gsize size = 0;
    const Text data(g_key_file_to_data(m_file.get(), &size, nullptr));
    return {data.get(), static_cast<qsizetype>(size)};
}

} // namespace quillo
