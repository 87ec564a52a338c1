#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

namespace quillo {

/// What tells this machine from another without telling which it is.
class DeviceIdentity {
public:
    static const QString machineIdPath; ///< "/etc/machine-id"

    explicit DeviceIdentity(const QString& path = machineIdPath);

    /// A UUID made of the machine's id and a constant of this application by HMAC-SHA-256, as
    /// sd_id128_get_machine_app_specific(3) recommends: the machine's id itself is confidential and must not leave the
    /// machine. Absent when the machine has no id.
    [[nodiscard]] std::optional<QString> hardwareUUID() const;
    /// 64 hexadecimal digits; derived from `deviceId` when the machine has no id.
    [[nodiscard]] QString fingerprint(const QString& deviceId) const;

private:
    QByteArray m_machineId;
};

/// A random UUID whose first 48 bits are the milliseconds of `time` since 1970 (RFC 9562, version 7).
QString makeUUIDVersion7(const QDateTime& time);

} // namespace quillo
