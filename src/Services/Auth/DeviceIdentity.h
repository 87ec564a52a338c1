#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

namespace quillo {

/// What tells this user's home on this machine from every other, without telling which it is.
///
/// The machine's id can be read by everyone on it, and a server opens an anonymous account for whoever names its
/// device. So the user's number goes into what is derived, a secret of the home, and the server it is meant for.
class DeviceIdentity {
public:
    static const QString machineIdPath; ///< "/etc/machine-id"

    struct Source {
        QString machineIdPath = DeviceIdentity::machineIdPath;
        QByteArray homeSecret{}; ///< random, of this home alone
        QString server{};        ///< another server gets another device
    };
    DeviceIdentity() : DeviceIdentity(Source()) {}
    explicit DeviceIdentity(const Source& source);

    /// A UUID made of all of these and a constant of this application by HMAC-SHA-256, as
    /// sd_id128_get_machine_app_specific(3) recommends: the machine's id itself is confidential and must not leave the
    /// machine. Absent when the machine has no id.
    [[nodiscard]] std::optional<QString> hardwareUUID() const;
    /// 64 hexadecimal digits; derived from `deviceId` when the machine has no id.
    [[nodiscard]] QString fingerprint(const QString& deviceId) const;
    /// Whether this is what earlier versions derived from the machine alone, which any of its users can do.
    [[nodiscard]] bool isComputable(const QString& deviceId) const;

private:
    QByteArray m_machineId;
    QByteArray m_secret;
};

/// 32 random bytes from the kernel, as hexadecimal digits.
QByteArray makeHomeSecret();

/// A random UUID whose first 48 bits are the milliseconds of `time` since 1970 (RFC 9562, version 7).
QString makeUUIDVersion7(const QDateTime& time);

} // namespace quillo
