#include "Core/Json.h"
#include "Core/Log.h"
#include "Core/PrivateFile.h"
#include "Platform/Linux/SecretService/SecretStores.h"

#include <QFile>
#include <QFileInfo>
#include <QStringBuilder>

#include <map>
#include <sys/stat.h>

namespace quillo {

namespace {

using Values = std::map<QString, QByteArray>;

void warn(const QString& message) {
    appLog(QStringLiteral("[FileSecretStore] ⚠️ ") % message, LogLevel::warn, QStringLiteral("SecretService"));
}

std::optional<Values> parse(const QByteArray& content) {
    const auto json = json::parse(content);
    if (!json || !json->is_object())
        return std::nullopt;
    Values values;
    for (const auto& [key, value] : json->items()) {
        if (!value.is_string())
            return std::nullopt;
        values.emplace(QString::fromStdString(key), QByteArray::fromBase64(json::textOf(value).toLatin1()));
    }
    return values;
}

class FileSecretStore final : public SecretStore {
public:
    explicit FileSecretStore(QString path) : m_path(std::move(path)) {}

    bool isAvailable() override {
        try {
            privateFile::addFolder(folder());
            return true;
        } catch (const FileError&) {
            return false;
        }
    }

    std::optional<QByteArray> read(const QString& key) override {
        const auto values = load();
        const auto found = values ? values->find(key) : Values::const_iterator();
        return values && found != values->end() ? std::optional(found->second) : std::nullopt;
    }

    bool write(const QString& key, const QByteArray& value) override {
        auto values = load();
        if (!values)
            return false;
        (*values)[key] = value;
        return save(*values);
    }

    bool remove(const QString& key) override {
        auto values = load();
        return values && (values->erase(key) == 0 || save(*values));
    }

private:
    /// Nothing when the file exists but cannot be read: it must not be replaced.
    std::optional<Values> load() {
        QFile file(m_path);
        if (!file.exists())
            return Values();
        if (!file.open(QIODevice::ReadOnly)) {
            warn(QStringLiteral("%1 cannot be read: %2").arg(m_path, file.errorString()));
            return std::nullopt;
        }
        // A copy or a backup may have made it readable to others.
        ::fchmod(file.handle(), 0600);
        if (auto values = parse(file.readAll()))
            return values;
        const QString aside = m_path % QStringLiteral(".damaged");
        QFile::remove(aside);
        if (!file.rename(aside)) {
            warn(QStringLiteral("%1 is damaged and cannot be moved aside: %2").arg(m_path, file.errorString()));
            return std::nullopt;
        }
        warn(QStringLiteral("%1 is damaged; it is kept as %2, and the secrets start empty").arg(m_path, aside));
        return Values();
    }

    [[nodiscard]] bool save(const Values& values) const {
        auto object = json::Json::object();
        for (const auto& [key, value] : values)
            object[key.toStdString()] = value.toBase64().toStdString();
        try {
            privateFile::addFolder(folder());
            privateFile::replace(m_path, json::encode(object), privateFile::Durability::disk);
            return true;
        } catch (const FileError& error) {
            warn(error.message());
            return false;
        }
    }

    [[nodiscard]] QString folder() const { return QFileInfo(m_path).absolutePath(); }

    QString m_path;
};

} // namespace

std::unique_ptr<SecretStore> createFileSecretStore(const QString& path) {
    return std::make_unique<FileSecretStore>(path);
}

} // namespace quillo
