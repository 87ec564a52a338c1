#pragma once

#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QString>
#include <QUrl>

#include <memory>
#include <optional>

namespace quillo {

/// Whom the application trusts to be its server: the system's authorities, the one named by "QUILLO_CA_FILE", and for
/// loopback hosts alone the authority that the local server made for itself. Thread-safe.
class TrustedNetwork {
public:
    /// `localAuthorityFile` is read when it is needed and again when it changes, as the local server writes it on its
    /// first start. A named file that cannot be read is logged, and adds no trust.
    explicit TrustedNetwork(QString localAuthorityFile, std::optional<QString> extraAuthorityFile = {});
    ~TrustedNetwork();
    TrustedNetwork(const TrustedNetwork&) = delete;
    TrustedNetwork& operator=(const TrustedNetwork&) = delete;

    /// With the server's folder in the user's data folder, and the environment's "QUILLO_CA_FILE". Where only the
    /// application's own server is asked, the system's authorities are not read: that takes a fifth of a second of
    /// processor time and several megabytes.
    static std::shared_ptr<TrustedNetwork> fromEnvironment(bool onlyOwnServer = false);

    /// True for "localhost", names below it, 127.0.0.0/8 and ::1: what cannot lead to another machine.
    static bool isLoopback(const QUrl& url);

    [[nodiscard]] QSslConfiguration configuration(const QUrl& url) const;
    /// Gives `request` the configuration of its address.
    void prepare(QNetworkRequest& request) const;

private:
    struct Cache;
    std::unique_ptr<Cache> m_cache;
};

} // namespace quillo
