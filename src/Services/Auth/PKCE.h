#pragma once

#include <QByteArray>
#include <QString>

namespace quillo {

/// Proof Key for Code Exchange, https://www.rfc-editor.org/rfc/rfc7636: the client that redeems an authorization code
/// proves that it requested it.
struct PKCE {
    enum class ChallengeMethod {
        S256,  ///< base64url of the verifier's SHA-256
        plain, ///< the verifier itself; gives no protection if the request is observed, so it is never used here
    };

    struct PKCEPair {
        QString codeVerifier;
        QString codeChallenge;
    };

    /// As the parameter "code_challenge_method" is written.
    static QString name(ChallengeMethod method);
    /// A pair with a new verifier of 32 random bytes. Throws std::system_error when the system has no random bytes.
    static PKCEPair makePair(ChallengeMethod method = ChallengeMethod::S256);
    static QString challenge(const QString& verifier, ChallengeMethod method);
    /// 16 random bytes, in the form of the verifier. Throws as `makePair`.
    static QString makeState();
    /// base64url without padding.
    static QString encode(const QByteArray& bytes);
};

} // namespace quillo
