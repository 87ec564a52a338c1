#include "Services/Auth/PKCE.h"

#include <QCryptographicHash>

#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace quillo {

namespace {

/// Use the kernel's generator: one in this process could be seeded elsewhere.
QByteArray randomBytes(int count) {
    QByteArray bytes(count, '\0');
    if (::getentropy(bytes.data(), static_cast<size_t>(count)) != 0)
        throw std::system_error(errno, std::generic_category(), "the system has no random bytes");
    return bytes;
}

} // namespace

QString PKCE::name(ChallengeMethod method) {
    return method == ChallengeMethod::S256 ? QStringLiteral("S256") : QStringLiteral("plain");
}

QString PKCE::encode(const QByteArray& bytes) {
    return QString::fromLatin1(bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QString PKCE::challenge(const QString& verifier, ChallengeMethod method) {
    if (method == ChallengeMethod::plain)
        return verifier;
    return encode(QCryptographicHash::hash(verifier.toLatin1(), QCryptographicHash::Sha256));
}

PKCE::PKCEPair PKCE::makePair(ChallengeMethod method) {
    const auto verifier = encode(randomBytes(32));
    return {verifier, challenge(verifier, method)};
}

QString PKCE::makeState() { return encode(randomBytes(16)); }

} // namespace quillo
