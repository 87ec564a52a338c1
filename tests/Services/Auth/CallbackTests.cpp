#include "Services/Auth/CallbackURL.h"
#include "Services/Auth/PKCE.h"

#include <QSet>

#include <gmock/gmock.h>

using namespace quillo;

namespace {

TEST(PKCE, MakesTheExampleOfItsStandard) {
    // RFC 7636, appendix B.
    const unsigned char octets[] = {116, 24,  223, 180, 151, 153, 224, 37,  79, 250, 96, 125, 216, 173, 187, 186,
                                    22,  212, 37,  77,  105, 214, 191, 240, 91, 88,  5,  88,  83,  132, 141, 121};
    const auto verifier = PKCE::encode(QByteArray(reinterpret_cast<const char*>(octets), sizeof octets));
    EXPECT_EQ(verifier, u"dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"_qs);
    EXPECT_EQ(PKCE::challenge(verifier, PKCE::ChallengeMethod::S256),
              u"E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"_qs);
    EXPECT_EQ(PKCE::challenge(verifier, PKCE::ChallengeMethod::plain), verifier);
}

TEST(PKCE, NoTwoVerifiersOrStatesAreTheSame) {
    QSet<QString> made;
    for (int round = 0; round < 100; ++round) {
        const auto pair = PKCE::makePair();
        EXPECT_EQ(pair.codeChallenge, PKCE::challenge(pair.codeVerifier, PKCE::ChallengeMethod::S256));
        for (const auto& [text, length] : {std::pair(pair.codeVerifier, 43), {PKCE::makeState(), 22}}) {
            EXPECT_EQ(text.size(), length);
            EXPECT_THAT(text.toStdString(), testing::MatchesRegex("[A-Za-z0-9_-]+"));
            made << text;
        }
    }
    EXPECT_EQ(made.size(), 200);
}

TEST(CallbackURL, OnlyTheRedirectURIIsRead) {
    const QString good = u"quillo://auth/callback"_qs;
    for (const auto& url :
         {u"quillo://auth/callback2?code=c&state=s"_qs, u"quillo://auth/callback/?code=c&state=s"_qs,
          u"quillo://auth?code=c&state=s"_qs, u"quillo://evil/callback?code=c&state=s"_qs,
          u"quillo://auth:81/callback?code=c&state=s"_qs, u"quillo://auth@evil/callback?code=c&state=s"_qs,
          u"quillo://x@auth/callback?code=c&state=s"_qs, u"https://auth/callback?code=c&state=s"_qs,
          u"quillo:auth/callback?code=c&state=s"_qs, u"quillo://auth//callback?code=c&state=s"_qs, QString(),
          QString(good + u"?code=a&code=b&state=s"_qs), QString(good + u"?code=a&state=s&state=t"_qs),
          QString(good + u"?code="_qs + QString(9000, u'a'))})
        EXPECT_FALSE(callbackURL::parse(QUrl(url))) << url.left(80).toStdString();

    const auto read =
        callbackURL::parse(QUrl(good + u"?state=a%2Db&code=c_d&error=e&error_description=No%0Away+%00out#x"_qs));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->state, u"a-b"_qs);
    EXPECT_EQ(read->code, u"c_d"_qs);
    EXPECT_EQ(read->errorDescription, u"Noway out"_qs);
}

TEST(CallbackURL, ALogSeesNoValueThatCouldBeSecret) {
    EXPECT_EQ(
        callbackURL::redacted(QUrl(u"quillo://u:p@auth/callback?code=SECRET&state=SECRET&error=e&x=SECRET#SECRET"_qs)),
        u"quillo://auth/callback?code=<redacted>&state=<redacted>&error=e&x=<redacted>"_qs);
}

} // namespace
