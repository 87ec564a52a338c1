#pragma once

#include "Support/Async.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QUrlQuery>

#include <memory>

namespace quillo::test {

/// A user at the server's sign-in page, without a window: reads the page, fills in its form, sends it.
class BrowserVisit {
public:
    struct Page {
        int status = 0;
        QString html;
        [[nodiscard]] bool says(const QString& words) const { return html.contains(words); }
    };

    /// Opens what the application asked the browser to show.
    explicit BrowserVisit(QUrl url) : m_url(std::move(url)) { page = end(m_network.get(request())); }

    /// Sends the form; the hidden fields go along as a browser would send them.
    const Page& submit(const QMap<QString, QString>& fields) {
        QUrlQuery form;
        const auto add = [&](const QString& name, const QString& value) {
            form.addQueryItem(name, QString::fromLatin1(QUrl::toPercentEncoding(value)));
        };
        static const QRegularExpression hidden(
            QStringLiteral(R"re(<input type="hidden" name="([^"]*)" value="([^"]*)">)re"));
        for (auto found = hidden.globalMatch(page.html); found.hasNext();) {
            const auto match = found.next();
            add(match.captured(1), match.captured(2));
        }
        for (const auto& name : fields.keys())
            add(name, fields[name]);
        auto posted = request();
        posted.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/x-www-form-urlencoded"));
        posted.setRawHeader("Origin", m_url.adjusted(QUrl::RemovePath | QUrl::RemoveQuery).toEncoded());
        page = end(m_network.post(posted, form.query(QUrl::FullyEncoded).toLatin1()));
        return page;
    }

    /// Where the page sends the browser next; empty when it stays.
    [[nodiscard]] QUrl callback() const {
        static const QRegularExpression link(QStringLiteral(R"re(href="(quillo://[^"]*)")re"));
        return QUrl(link.match(page.html).captured(1).replace(QStringLiteral("&amp;"), QStringLiteral("&")));
    }

    Page page;

private:
    [[nodiscard]] QNetworkRequest request() const {
        QNetworkRequest request(m_url);
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        return request;
    }

    static Page end(QNetworkReply* reply) {
        const std::unique_ptr<QNetworkReply> owned(reply);
        EXPECT_TRUE(waitUntil([&] { return reply->isFinished(); })) << "the page did not come";
        return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                QString::fromUtf8(reply->readAll())};
    }

    QUrl m_url;
    QNetworkAccessManager m_network;
};

} // namespace quillo::test
