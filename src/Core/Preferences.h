#pragma once

#include <QObject>
#include <QSettings>
#include <QStringList>
#include <QVariant>

#include <memory>

namespace quillo {

/// The process's key-value store for preferences: an INI file in the user's configuration folder, which its owner alone
/// can read. Main thread.
///
/// Writes are atomic and reach the disk before the call returns. A file that is not a settings file (binary, not UTF-8,
/// or with other lines) is moved aside unchanged and the defaults are used.
class Preferences final : public QObject {
    Q_OBJECT
public:
    static Preferences& shared();
    /// "quillo/quillo.ini" in the user's configuration folder.
    static QString defaultPath();

    explicit Preferences(const QString& path = defaultPath());

    [[nodiscard]] bool contains(const QString& key) const;
    /// The value stored under `key`; invalid when there is none. A number or a boolean may come back as text.
    [[nodiscard]] QVariant value(const QString& key) const;
    /// False when the value could not be saved; it then applies to this run only, and the reason is in the log.
    bool setValue(const QString& key, const QVariant& value);
    bool remove(const QString& key);
    [[nodiscard]] QStringList keys() const;
    [[nodiscard]] QString path() const { return m_path; }

Q_SIGNALS:
    /// Emitted after a value was changed or removed.
    void changed(const QString& key);

private:
    void setAsideUnlessReadable();
    bool save();

    QString m_path;
    std::unique_ptr<QSettings> m_settings;
};

} // namespace quillo
