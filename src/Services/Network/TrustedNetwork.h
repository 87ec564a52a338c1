#pragma once

#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QString>
#include <QUrl>

#include <memory>
#include <optional>

namespace quillo {

/// The certificate authorities that the application trusts: the system's, the one named by "QUILLO_CA_FILE", and, only
/// for loopback hosts, the authority created by the local server. Thread-safe.
class TrustedNetwork {
public:
    /// `localAuthorityFile` is read when it is needed and again when it changes, as the local server writes it on its
    /// first start. A named file that cannot be read is logged and adds no authority.
    explicit TrustedNetwork(QString localAuthorityFile, std::optional<QString> extraAuthorityFile = {});
    ~TrustedNetwork();
    TrustedNetwork(const TrustedNetwork&) = delete;
    TrustedNetwork& operator=(const TrustedNetwork&) = delete;

    /// Uses the server's folder in the user's data folder, and "QUILLO_CA_FILE" from the environment. If only the
    /// application's own server is used, the system's authorities are not read: that takes a fifth of a second of
    /// processor time and several megabytes.
    static std::shared_ptr<TrustedNetwork> fromEnvironment(bool onlyOwnServer = false);

    /// True for names and addresses that cannot lead to another machine: "localhost", names below it, 127.0.0.0/8 and
    /// ::1.
    static bool isLoopback(const QUrl& url);

    [[nodiscard]] QSslConfiguration configuration(const QUrl& url) const;
    /// Sets the TLS configuration for the address of `request`.
    void prepare(QNetworkRequest& request) const;

private:
    struct Cache;
    std::unique_ptr<Cache> m_cache;
};

} // namespace quillo
