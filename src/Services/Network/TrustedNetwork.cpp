#include "Services/Network/TrustedNetwork.h"

#include "Core/Log.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QSslCertificate>
#include <QStandardPaths>
#include <QStringBuilder>

#include <future>
#include <mutex>

namespace quillo {

namespace {

/// A file of certificates, read again when it has changed.
class AuthorityFile {
public:
    explicit AuthorityFile(QString path) : m_path(std::move(path)) {}

    QList<QSslCertificate> certificates() {
        const QFileInfo info(m_path);
        if (!info.exists())
            return {};
        if (info.lastModified() != m_modified || info.size() != m_size) {
            m_modified = info.lastModified();
            m_size = info.size();
            m_certificates = read();
        }
        return m_certificates;
    }

private:
    [[nodiscard]] QList<QSslCertificate> read() const {
        QFile file(m_path);
        QList<QSslCertificate> certificates;
        if (file.open(QIODevice::ReadOnly))
            certificates = QSslCertificate::fromDevice(&file, QSsl::Pem);
        if (certificates.isEmpty())
            appLog(QStringLiteral("[TrustedNetwork] ⚠️ No certificate authority could be read from %1 (%2)")
                       .arg(m_path, file.error() == QFile::NoError ? QStringLiteral("no PEM certificate in it")
                                                                   : file.errorString()),
                   LogLevel::warn, QStringLiteral("TrustedNetwork"));
        return certificates;
    }

    QString m_path;
    QDateTime m_modified;
    qint64 m_size = -1;
    QList<QSslCertificate> m_certificates;
};

} // namespace

struct TrustedNetwork::Cache {
    std::mutex mutex;
    AuthorityFile local;
    std::optional<AuthorityFile> extra;
    /// Reading them takes a fifth of a second of processor time.
    std::shared_future<QList<QSslCertificate>> system;
    bool onlyOwnServer = false;

    void loadSystem() {
        if (!system.valid())
            system = std::async(std::launch::async, &QSslConfiguration::systemCaCertificates).share();
    }
};

TrustedNetwork::TrustedNetwork(QString localAuthorityFile, std::optional<QString> extraAuthorityFile)
    : m_cache(new Cache{.mutex = {},
                        .local = AuthorityFile(std::move(localAuthorityFile)),
                        .extra = {},
                        .system = {},
                        .onlyOwnServer = false}) {
    if (!extraAuthorityFile)
        return;
    if (!QFileInfo::exists(*extraAuthorityFile))
        appLog(QStringLiteral("[TrustedNetwork] ⚠️ The certificate authority file %1 named by QUILLO_CA_FILE does not "
                              "exist; servers that it vouches for are refused until it does")
                   .arg(*extraAuthorityFile),
               LogLevel::warn, QStringLiteral("TrustedNetwork"));
    m_cache->extra.emplace(*extraAuthorityFile);
}

TrustedNetwork::~TrustedNetwork() = default;

std::shared_ptr<TrustedNetwork> TrustedNetwork::fromEnvironment(bool onlyOwnServer) {
    std::optional<QString> extra;
    if (!qEnvironmentVariableIsEmpty("QUILLO_CA_FILE"))
        extra = qEnvironmentVariable("QUILLO_CA_FILE");
    const auto data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    auto trust =
        std::make_shared<TrustedNetwork>(data % QStringLiteral("/quillo/server/authority.pem"), std::move(extra));
    trust->m_cache->onlyOwnServer = onlyOwnServer;
    // Begin now on another thread. Otherwise the first request would do it on the main thread and block the hotkeys.
    if (!onlyOwnServer)
        trust->m_cache->loadSystem();
    return trust;
}

bool TrustedNetwork::isLoopback(const QUrl& url) {
    auto host = url.host().toLower();
    if (host.endsWith(u'.'))
        host.chop(1);
    return host == QStringLiteral("localhost") || host.endsWith(QStringLiteral(".localhost")) ||
           QHostAddress(host).isLoopback();
}

QSslConfiguration TrustedNetwork::configuration(const QUrl& url) const {
    auto configuration = QSslConfiguration::defaultConfiguration();
    const std::lock_guard lock(m_cache->mutex);
    QList<QSslCertificate> added;
    if (m_cache->extra)
        added += m_cache->extra->certificates();
    if (isLoopback(url))
        added += m_cache->local.certificates();
    if (added.isEmpty())
        return configuration;
    if (m_cache->onlyOwnServer && isLoopback(url)) {
        configuration.setCaCertificates(added);
        return configuration;
    }
    // A configuration with its own list does not load the system's authorities on demand, so add them to the list.
    m_cache->loadSystem();
    // For a server on this machine the added authority is enough. Do not wait for the rest of the list in the first
    // second after the start, when waiting recordings are sent and the hotkeys are already armed.
    const bool isLoaded = m_cache->system.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    configuration.setCaCertificates(isLoaded || !isLoopback(url) ? m_cache->system.get() + added : added);
    return configuration;
}

void TrustedNetwork::prepare(QNetworkRequest& request) const {
    if (request.url().scheme() != QStringLiteral("http") && request.url().scheme() != QStringLiteral("ws"))
        request.setSslConfiguration(configuration(request.url()));
}

} // namespace quillo
