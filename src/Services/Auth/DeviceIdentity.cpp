#include "Services/Auth/DeviceIdentity.h"

#include <QFile>
#include <QMessageAuthenticationCode>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QUuid>

#include <unistd.h>

namespace quillo {

namespace {

constexpr const char* deviceIdPurpose = "com.quillospeech.deviceId";

QByteArray derive(const QByteArray& secret, const char* purpose) {
    return QMessageAuthenticationCode::hash(purpose, secret, QCryptographicHash::Sha256);
}

QString uuid(QByteArray bytes, char version) {
    bytes[6] = static_cast<char>((bytes[6] & 0x0f) | (version << 4));
    bytes[8] = static_cast<char>((bytes[8] & 0x3f) | 0x80);
    return QUuid::fromRfc4122(bytes).toString(QUuid::WithoutBraces);
}

} // namespace

const QString DeviceIdentity::machineIdPath = QStringLiteral("/etc/machine-id");

DeviceIdentity::DeviceIdentity(const Source& source) {
    QFile file(source.machineIdPath);
    if (!file.open(QIODevice::ReadOnly))
        return;
    // In an image that was never booted the file contains "uninitialized" or nothing; all such machines would get the
    // same id.
    const auto content = QString::fromLatin1(file.read(64)).trimmed();
    static const QRegularExpression id(QStringLiteral("^[0-9a-f]{32}$"));
    if (!id.match(content).hasMatch() || content == QString(32, u'0'))
        return;
    m_machineId = QByteArray::fromHex(content.toLatin1());
    // Put the length before each part, so that different sources never give the same bytes.
    for (const auto& part : {m_machineId, source.homeSecret, QByteArray::number(::getuid()), source.server.toUtf8()})
        m_secret += QByteArray::number(part.size()) + ':' + part;
}

std::optional<QString> DeviceIdentity::hardwareUUID() const {
    if (m_machineId.isEmpty())
        return std::nullopt;
    return uuid(derive(m_secret, deviceIdPurpose).left(16), 4);
}

bool DeviceIdentity::isComputable(const QString& deviceId) const {
    return !m_machineId.isEmpty() && deviceId == uuid(derive(m_machineId, deviceIdPurpose).left(16), 4);
}

QString DeviceIdentity::fingerprint(const QString& deviceId) const {
    const auto secret = m_machineId.isEmpty() ? deviceId.toUtf8() : m_secret;
    return QString::fromLatin1(derive(secret, "com.quillospeech.deviceFingerprint").toHex());
}

QByteArray makeHomeSecret() {
    QByteArray bytes(32, '\0');
    QRandomGenerator::system()->generate(reinterpret_cast<quint32*>(bytes.data()),
                                         reinterpret_cast<quint32*>(bytes.data() + bytes.size()));
    return bytes.toHex();
}

QString makeUUIDVersion7(const QDateTime& time) {
    QByteArray bytes(16, '\0');
    auto milliseconds = static_cast<uint64_t>(time.toMSecsSinceEpoch());
    for (int index = 5; index >= 0; --index, milliseconds >>= 8)
        bytes[index] = static_cast<char>(milliseconds & 0xff);
    for (int index = 6; index < 16; ++index)
        bytes[index] = static_cast<char>(QRandomGenerator::system()->bounded(256));
    return uuid(bytes, 7);
}

} // namespace quillo
