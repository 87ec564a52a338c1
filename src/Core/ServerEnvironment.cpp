#include "Core/ServerEnvironment.h"

#include <QRegularExpression>
#include <QStringBuilder>

#include <algorithm>
#include <arpa/inet.h>
#include <stdexcept>

namespace quillo {

namespace {

const QString hostVariable = QStringLiteral("QUILLO_SERVER_HOST");

bool isPort(const QString& text) {
    bool isNumber = false;
    const auto port = text.toUInt(&isNumber);
    return isNumber && text.front().isDigit() && port >= 1 && port <= 65535;
}

/// The bytes of a numeric address in network order; empty when `name` is not an address of `family`.
QByteArray numericAddress(const QString& name, int family) {
    QByteArray bytes(family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr), '\0');
    return ::inet_pton(family, name.toLatin1().constData(), bytes.data()) == 1 ? bytes : QByteArray();
}

bool isLoopbackAddress(const QString& name) {
    const auto version4 = numericAddress(name, AF_INET);
    return version4.startsWith('\x7f') || numericAddress(name, AF_INET6) == QByteArray(15, '\0') + '\1';
}

uint8_t byteOf(const QByteArray& address, int index) { return static_cast<uint8_t>(address.at(index)); }

/// Private (RFC 1918) or link-local (RFC 3927).
bool isPrivate4(const QByteArray& address) {
    const auto first = byteOf(address, 0);
    const auto second = byteOf(address, 1);
    return first == 10 || (first == 172 && second >= 16 && second < 32) || (first == 192 && second == 168) ||
           (first == 169 && second == 254);
}

/// Unique local (RFC 4193) or link-local (RFC 4291).
bool isPrivate6(const QByteArray& address) {
    return (byteOf(address, 0) & 0xfe) == 0xfc || (byteOf(address, 0) == 0xfe && (byteOf(address, 1) & 0xc0) == 0x80);
}

bool isHostName(const QString& name) {
    static const QRegularExpression labels(QStringLiteral("^(?=.{1,253}$)[A-Za-z0-9_]([A-Za-z0-9_-]{0,61}[A-Za-z0-9_])?"
                                                          "(\\.[A-Za-z0-9_]([A-Za-z0-9_-]{0,61}[A-Za-z0-9_])?)*\\.?$"));
    static const QRegularExpression numbersOnly(QStringLiteral("^[0-9.]+$"));
    if (numbersOnly.match(name).hasMatch())
        return !numericAddress(name, AF_INET).isEmpty();
    return labels.match(name).hasMatch();
}

struct HostParts {
    QString name;
    QString port;
    bool isLiteral = false; ///< an IPv6 address in brackets
};

HostParts split(const QString& host) {
    if (host.startsWith(u'[')) {
        const auto end = host.indexOf(u']');
        const auto rest = end < 0 ? QString() : host.mid(end + 1);
        return {host.mid(1, end - 1), rest, true};
    }
    const auto colon = host.indexOf(u':');
    return colon < 0 ? HostParts{host, {}} : HostParts{host.left(colon), host.mid(colon)};
}

/// Nothing when `host` is a host name or address with an optional port, otherwise the error.
QString faultOf(const QString& host) {
    const auto parts = split(host);
    if (!parts.port.isEmpty() && (parts.port.size() < 2 || parts.port.front() != u':' || !isPort(parts.port.mid(1))))
        return QStringLiteral("what follows the host must be a colon and a port from 1 to 65535 "
                              "(an IPv6 address stands in brackets)");
    const bool valid = parts.isLiteral ? host.contains(u']') && !numericAddress(parts.name, AF_INET6).isEmpty()
                                       : isHostName(parts.name);
    if (!valid)
        return QStringLiteral("give a host name or address with an optional port, without scheme or path, "
                              "such as \"speech.example.org\" or \"192.0.2.7:8443\"");
    return {};
}

QUrl address(const QString& scheme, const QString& host, const QString& path) {
    return QUrl(scheme % QStringLiteral("://") % host % path, QUrl::StrictMode);
}

} // namespace

bool ServerEnvironment::isHostSet() { return !qEnvironmentVariableIsEmpty("QUILLO_SERVER_HOST"); }

QString ServerEnvironment::identity() const { return m_isCustomHost ? m_host.toLower() : QStringLiteral("local"); }

ServerEnvironment ServerEnvironment::fromEnvironment(const QString& builtInHost) {
    if (!isHostSet())
        return {builtInHost, false};
    const auto host = qEnvironmentVariable("QUILLO_SERVER_HOST");
    if (const auto fault = faultOf(host); !fault.isEmpty())
        throw std::invalid_argument(QStringLiteral("%1 is set to \"%2\", which is not a server host: %3")
                                        .arg(hostVariable, host, fault)
                                        .toStdString());
    return {host, true};
}

ServerEnvironment::ServerEnvironment(const QString& host, bool isCustomHost)
    : m_host(host), m_isCustomHost(isCustomHost) {
    if (const auto fault = faultOf(host); !fault.isEmpty())
        throw std::invalid_argument(QStringLiteral("\"%1\" is not a server host: %2").arg(host, fault).toStdString());
}

bool ServerEnvironment::isLoopback() const {
    // Stricter than the test of the WebSocket scheme: trust must not follow from a name like "localhost.example.org".
    auto name = split(m_host).name.toLower();
    if (name.endsWith(u'.'))
        name.chop(1);
    return name == QStringLiteral("localhost") || name.endsWith(QStringLiteral(".localhost")) ||
           isLoopbackAddress(name);
}

bool ServerEnvironment::isOnLocalNetwork() const {
    auto name = split(m_host).name.toLower();
    if (!m_isCustomHost)
        return false;
    if (const auto address = numericAddress(name, AF_INET); !address.isEmpty())
        return isPrivate4(address);
    if (const auto address = numericAddress(name, AF_INET6); !address.isEmpty())
        return isPrivate6(address);
    if (name.endsWith(u'.'))
        name.chop(1);
    static const QStringList zones{QStringLiteral(".local"), QStringLiteral(".lan"), QStringLiteral(".home.arpa"),
                                   QStringLiteral(".internal")};
    return !name.contains(u'.') ||
           std::any_of(zones.begin(), zones.end(), [&](const QString& zone) { return name.endsWith(zone); });
}

QUrl ServerEnvironment::apiBaseURL() const {
    return address(QStringLiteral("https"), m_host, QStringLiteral("/api/v1"));
}

QUrl ServerEnvironment::authBaseURL() const {
    return address(QStringLiteral("https"), m_host, QStringLiteral("/auth"));
}

QUrl ServerEnvironment::webBaseURL() const { return address(QStringLiteral("https"), m_host, {}); }

QUrl ServerEnvironment::wsTranscribeURL() const {
    const bool plain = m_host.contains(QStringLiteral("localhost")) || m_host.contains(QStringLiteral("127.0.0.1"));
    return address(plain ? QStringLiteral("ws") : QStringLiteral("wss"), m_host, QStringLiteral("/ws/v3/transcribe"));
}

} // namespace quillo
