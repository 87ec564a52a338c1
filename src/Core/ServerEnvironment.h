#pragma once

#include <QString>
#include <QUrl>

namespace quillo {

/// Which server the application talks to, and the base addresses of every client. Immutable after construction.
class ServerEnvironment {
public:
    /// Whether "QUILLO_SERVER_HOST" names a server. An empty one names none, as environment files leave it behind.
    [[nodiscard]] static bool isHostSet();
    /// Reads "QUILLO_SERVER_HOST" (a host name or address with an optional port); without it, `builtInHost` is used.
    /// Throws std::invalid_argument naming the variable and its value when that is not a host.
    static ServerEnvironment fromEnvironment(const QString& builtInHost);
    /// Throws std::invalid_argument when `host` is not a host name or address with an optional port.
    ServerEnvironment(const QString& host, bool isCustomHost);

    [[nodiscard]] const QString& host() const { return m_host; }
    [[nodiscard]] bool isCustomHost() const { return m_isCustomHost; }
    /// Which server a session and a user belong to: a custom host in lower case, or "local" for the server of this
    /// application, whatever port it has today.
    [[nodiscard]] QString identity() const;
    /// True for loopback hosts, where the application trusts the authority that the local server made.
    [[nodiscard]] bool isLoopback() const;

    /// True for a custom host that a network without a way out can hold: a private or link-local address, a name
    /// without a dot, or one below ".local", ".lan", ".home.arpa" or ".internal".
    [[nodiscard]] bool isOnLocalNetwork() const;

    [[nodiscard]] QUrl apiBaseURL() const;      ///< https://host/api/v1
    [[nodiscard]] QUrl authBaseURL() const;     ///< https://host/auth
    [[nodiscard]] QUrl webBaseURL() const;      ///< https://host
    [[nodiscard]] QUrl wsTranscribeURL() const; ///< ws for loopback, wss otherwise; path /ws/v3/transcribe

private:
    QString m_host;
    bool m_isCustomHost;
};

} // namespace quillo
