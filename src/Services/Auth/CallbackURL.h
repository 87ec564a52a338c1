#pragma once

#include <QString>
#include <QUrl>

#include <optional>

/// Reading of the URL that the server's page sends the browser to, RFC 6749 section 4.1.2. Whatever page the browser
/// shows can open such a URL, so that nothing in it is believed.
namespace quillo::callbackURL {

struct Answer {
    QString code;
    QString state;
    QString error;
    QString errorDescription; ///< printable, in one line of bounded length
};

/// Nothing when `url` is not one of our redirect URI, or says anything twice.
std::optional<Answer> parse(const QUrl& url);
/// For a log: values that could be secret, as the code and the state, are left out.
QString redacted(const QUrl& url);
/// Whether both are the same, in a time that does not tell where they differ.
bool equalInConstantTime(const QString& left, const QString& right);

} // namespace quillo::callbackURL
