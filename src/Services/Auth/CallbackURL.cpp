#include "Services/Auth/CallbackURL.h"

#include "Services/Auth/AuthConfig.h"

#include <QStringBuilder>
#include <QUrlQuery>

#include <openssl/crypto.h>

namespace quillo::callbackURL {

namespace {

constexpr int longestURL = 8192;
constexpr int longestDescription = 200;

QString plainText(QString text) {
    text.replace(u'+', u' ');
    text.removeIf([](QChar character) { return !character.isPrint(); });
    return text.simplified().left(longestDescription);
}

} // namespace

std::optional<Answer> parse(const QUrl& url) {
    const QUrl expected(AuthConfig::redirectURI);
    if (!url.isValid() || url.toEncoded().size() > longestURL ||
        url.adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment) != expected)
        return std::nullopt;
    const QUrlQuery query(url);
    bool isUnambiguous = true;
    const auto value = [&](const char* name) {
        const auto values = query.allQueryItemValues(QLatin1String(name), QUrl::FullyDecoded);
        isUnambiguous = isUnambiguous && values.size() <= 1;
        return values.value(0);
    };
    Answer answer{.code = value("code"),
                  .state = value("state"),
                  .error = plainText(value("error")),
                  .errorDescription = plainText(value("error_description"))};
    return isUnambiguous ? std::optional(answer) : std::nullopt;
}

QString redacted(const QUrl& url) {
    static const QStringList harmless{QStringLiteral("client_id"), QStringLiteral("redirect_uri"),
                                      QStringLiteral("response_type"), QStringLiteral("code_challenge_method"),
                                      QStringLiteral("error")};
    QStringList items;
    for (const auto& [name, value] : QUrlQuery(url).queryItems())
        items << name.left(40) % u'=' % (harmless.contains(name) ? value.left(80) : QStringLiteral("<redacted>"));
    auto bare = url.adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::RemoveUserInfo).toDisplayString();
    bare.truncate(200);
    return items.isEmpty() ? bare : QString(bare % u'?' % items.join(u'&'));
}

bool equalInConstantTime(const QString& left, const QString& right) {
    const auto one = left.toUtf8();
    const auto other = right.toUtf8();
    return one.size() == other.size() &&
           CRYPTO_memcmp(one.constData(), other.constData(), static_cast<size_t>(one.size())) == 0;
}

} // namespace quillo::callbackURL
