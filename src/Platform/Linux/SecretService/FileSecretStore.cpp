#include "Core/Log.h"
#include "Platform/Linux/SecretService/SecretStores.h"

#include <QFile>
#include <QFileInfo>
#include <QStringBuilder>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace quillo {

namespace {

using Values = std::map<QString, QByteArray>;

void warn(const QString& message) {
    appLog(QStringLiteral("[FileSecretStore] ⚠️ ") % message, LogLevel::warn, QStringLiteral("SecretService"));
}

std::optional<Values> parse(const QByteArray& content) {
    const auto json = nlohmann::json::parse(content.begin(), content.end(), nullptr, false);
    if (!json.is_object())
        return std::nullopt;
    Values values;
    for (const auto& [key, value] : json.items()) {
        if (!value.is_string())
            return std::nullopt;
        const auto bytes = QByteArray::fromStdString(value.get_ref<const std::string&>());
        values.emplace(QString::fromStdString(key), QByteArray::fromBase64(bytes));
    }
    return values;
}

/// Creates the folder for its owner only. An existing one is not changed, because the file itself is closed to others.
bool makeFolder(const QString& path) {
    if (QFileInfo(path).isDir())
        return true;
    const auto parent = QFileInfo(path).path();
    if (parent != path && !makeFolder(parent))
        return false;
    return ::mkdir(QFile::encodeName(path).constData(), 0700) == 0 || errno == EEXIST;
}

class FileSecretStore final : public SecretStore {
public:
    explicit FileSecretStore(QString path) : m_path(std::move(path)) {}

    bool isAvailable() override { return makeFolder(QFileInfo(m_path).path()); }

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

    bool save(const Values& values) {
        nlohmann::json json = nlohmann::json::object();
        for (const auto& [key, value] : values)
            json[key.toStdString()] = value.toBase64().toStdString();
        const auto content = QByteArray::fromStdString(json.dump());
        if (makeFolder(QFileInfo(m_path).path()) && replace(content))
            return true;
        warn(QStringLiteral("%1 cannot be written: %2").arg(m_path, QString::fromLocal8Bit(std::strerror(errno))));
        return false;
    }

    /// Writes a new file that is closed to others before it contains any data.
    [[nodiscard]] bool replace(const QByteArray& content) const {
        QByteArray name = QFile::encodeName(m_path % QStringLiteral(".XXXXXX"));
        const int descriptor = ::mkostemp(name.data(), O_CLOEXEC); // mode 0600
        if (descriptor < 0)
            return false;
        bool written =
            ::write(descriptor, content.constData(), static_cast<size_t>(content.size())) == content.size() &&
            ::fsync(descriptor) == 0;
        written = ::close(descriptor) == 0 && written;
        written = written && ::rename(name.constData(), QFile::encodeName(m_path).constData()) == 0;
        if (!written)
            ::unlink(name.constData());
        return written;
    }

    QString m_path;
};

} // namespace

std::unique_ptr<SecretStore> createFileSecretStore(const QString& path) {
    return std::make_unique<FileSecretStore>(path);
}

} // namespace quillo
