#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

namespace quillo {

/// A stable, pseudonymous id of this user's home folder on this machine.
///
/// All users of the machine can read its id, and a server opens the anonymous account of any device id that it is
/// given. So the id is derived also from the user's number, a secret in the home folder, and the server.
class DeviceIdentity {
public:
    static const QString machineIdPath; ///< "/etc/machine-id"

    struct Source {
        QString machineIdPath = DeviceIdentity::machineIdPath;
        QByteArray homeSecret{}; ///< random, unique to this home folder
        QString server{};        ///< another server gets another device
    };
    DeviceIdentity() : DeviceIdentity(Source()) {}
    explicit DeviceIdentity(const Source& source);

    /// A UUID derived from all of these and a constant of this application by HMAC-SHA-256, as
    /// sd_id128_get_machine_app_specific(3) recommends: the machine's id is confidential and must not leave the
    /// machine. Absent when the machine has no id.
    [[nodiscard]] std::optional<QString> hardwareUUID() const;
    /// 64 hexadecimal digits; derived from `deviceId` when the machine has no id.
    [[nodiscard]] QString fingerprint(const QString& deviceId) const;
    /// Whether this id is the one that earlier versions derived from the machine only, which any of its users can
    /// compute.
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
