#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

using GKeyFile = struct _GKeyFile;

namespace quillo {

/// The keys of a desktop entry that control automatic start. Comments, translations and all other keys are preserved.
/// Any thread.
class AutostartEntry {
public:
    /// A new entry that starts `command`.
    static AutostartEntry create(const QString& program, const QStringList& arguments);
    /// Nothing when `content` is not a desktop entry.
    static std::optional<AutostartEntry> parse(const QByteArray& content);

    /// Switched off by its keys (Hidden, X-GNOME-Autostart-enabled), or not meant for any of `desktops`.
    [[nodiscard]] bool isSwitchedOff(const QStringList& desktops) const;
    /// Whether the entry names a program to start; sessions skip one that does not.
    [[nodiscard]] bool canStart() const;
    /// The command's words; empty when the command cannot be parsed.
    [[nodiscard]] QStringList command() const;

    void setCommand(const QString& program, const QStringList& arguments);
    void switchOn();
    void switchOff();
    /// Whether it equals what `create` makes, apart from being switched on or off.
    [[nodiscard]] bool isPlain() const;
    [[nodiscard]] QByteArray content() const;

private:
    struct Closer {
        void operator()(GKeyFile* file) const;
    };
    explicit AutostartEntry(GKeyFile* file) : m_file(file) {}
    void removeSwitches();
    [[nodiscard]] bool isFlag(const char* key, bool wanted) const;
    [[nodiscard]] QString text(const char* key) const;
    [[nodiscard]] QStringList list(const char* key) const;

    std::unique_ptr<GKeyFile, Closer> m_file;
};

/// One word of an Exec key, quoted where that is needed (Desktop Entry Specification, "The Exec key"), before the
/// escapes of a string value.
[[nodiscard]] QString quotedExecWord(const QString& word);

} // namespace quillo
