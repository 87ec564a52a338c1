#pragma once

#include <QString>
#include <QUrl>

#include <optional>

/// Parses the URL to which the server's page sends the browser (RFC 6749 section 4.1.2). Any page in the browser can
/// open such a URL, so its content is not trusted.
namespace quillo::callbackURL {

struct Answer {
    QString code;
    QString state;
    QString error;
    QString errorDescription; ///< printable, in one line of bounded length
};

/// Nothing when `url` does not match our redirect URI or repeats a parameter.
std::optional<Answer> parse(const QUrl& url);
/// For the log: leaves out values that could be secret, such as the code and the state.
QString redacted(const QUrl& url);
/// Compares in constant time: the time does not reveal where they differ.
bool equalInConstantTime(const QString& left, const QString& right);

} // namespace quillo::callbackURL
