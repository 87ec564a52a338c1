#include "Core/Preferences.h"

#include "Core/Log.h"
#include "Core/PrivateFile.h"
#include "Core/SettingsSyntax.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QStringDecoder>

#include <fcntl.h>
#include <sys/stat.h>

namespace quillo {
namespace {

constexpr mode_t ownerOnly = 0600;

void log(const QString& message, LogLevel level) { appLog(message, level, QStringLiteral("Preferences")); }

} // namespace

QString whyNoSettings(const QByteArray& bytes) {
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(bytes);
    if (decoder.hasError())
        return QStringLiteral("it is not UTF-8 text");
    if (text.contains(QChar::Null))
        return QStringLiteral("it holds binary data");
    static const QRegularExpression section(QStringLiteral(R"(^\[[^\]]+\]$)"));
    static const QRegularExpression entry(QStringLiteral(R"(^[^=\[\];#][^=]*=.*$)"));
    int number = 0;
    bool continued = false;
    for (const auto& line : text.split(u'\n')) {
        ++number;
        const QString trimmed = line.trimmed();
        const bool skip = continued || trimmed.isEmpty() || trimmed.startsWith(u';') || trimmed.startsWith(u'#');
        continued = trimmed.endsWith(u'\\') && !trimmed.endsWith(QLatin1String("\\\\"));
        if (!skip && !section.match(trimmed).hasMatch() && !entry.match(trimmed).hasMatch())
            return QStringLiteral("line %1 is no setting").arg(number);
    }
    return {};
}

Preferences& Preferences::shared() {
    // Lives as long as the process, as QSettings' own caches do.
    static auto* const preferences = new Preferences;
    return *preferences;
}

QString Preferences::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/quillo/quillo.ini");
}

Preferences::Preferences(const QString& path) : m_path(path) {
    setAsideUnlessReadable();
    m_settings = std::make_unique<QSettings>(m_path, QSettings::IniFormat);
}

void Preferences::setAsideUnlessReadable() {
    QFile file(m_path);
    if (!file.exists())
        return;
    if (!file.open(QIODevice::ReadOnly)) {
        log(QStringLiteral("[Preferences] ⚠️ Cannot read %1: %2. Using the defaults; check its permissions")
                .arg(m_path, file.errorString()),
            LogLevel::warn);
        return;
    }
    ::fchmod(file.handle(), ownerOnly);
    const QString reason = whyNoSettings(file.readAll());
    file.close();
    if (reason.isEmpty())
        return;
    const QString stamp = QDateTime::currentDateTimeUtc().toString(u"yyyyMMdd-HHmmss");
    QString aside = m_path + QStringLiteral(".broken-") + stamp;
    for (int attempt = 2; QFile::exists(aside); ++attempt)
        aside = m_path + QStringLiteral(".broken-") + stamp + QStringLiteral("-%1").arg(attempt);
    if (QFile::rename(m_path, aside))
        log(QStringLiteral("[Preferences] ⚠️ %1 is no settings file (%2). Kept it as %3 and started with the defaults")
                .arg(m_path, reason, aside),
            LogLevel::warn);
    else
        log(QStringLiteral("[Preferences] ❌ %1 is no settings file (%2) and cannot be moved aside")
                .arg(m_path, reason),
            LogLevel::error);
}

bool Preferences::contains(const QString& key) const { return m_settings->contains(key); }

QVariant Preferences::value(const QString& key) const {
    QVariant stored = m_settings->value(key);
    // A hand-written "a, b" reads as a list.
    if (stored.typeId() == QMetaType::QStringList)
        return stored.toStringList().join(QStringLiteral(", "));
    return stored;
}

bool Preferences::setValue(const QString& key, const QVariant& value) {
    if (contains(key) && this->value(key).toString() == value.toString() && !value.toString().isEmpty())
        return true;
    m_settings->setValue(key, value);
    const bool saved = save();
    Q_EMIT changed(key);
    return saved;
}

bool Preferences::remove(const QString& key) {
    if (!contains(key))
        return true;
    m_settings->remove(key);
    const bool saved = save();
    Q_EMIT changed(key);
    return saved;
}

QStringList Preferences::keys() const { return m_settings->allKeys(); }

bool Preferences::save() {
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    // QSettings keeps the mode of a file that is there, and makes a new one for everybody to read.
    const Descriptor created(::open(QFile::encodeName(m_path).constData(), O_WRONLY | O_CREAT | O_CLOEXEC, ownerOnly));
    m_settings->sync();
    if (m_settings->status() == QSettings::NoError)
        return true;
    log(QStringLiteral("[Preferences] ⚠️ Cannot save %1. The change holds until Quillo quits; check the folder's "
                       "permissions and free space")
            .arg(m_path),
        LogLevel::warn);
    return false;
}

} // namespace quillo
