#pragma once

#include "DesktopSession.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QMap>
#include <QSocketNotifier>
#include <QUrl>

#include <memory>

namespace quillo::test {

/// The real browser in a session, as the one that the desktop opens pages in. It is watched and driven through its
/// DevTools protocol on two pipes (https://chromedevtools.github.io/devtools-protocol/), as its user would: what is
/// typed and pressed are input events.
class Chromium {
public:
    /// `origin` may open the scheme "quillo" without asking, as for a user who said so before. Throws
    /// DesktopSessionError.
    Chromium(DesktopSession& session, const QUrl& origin);
    ~Chromium();
    Chromium(const Chromium&) = delete;
    Chromium& operator=(const Chromium&) = delete;

    /// Waits until a page whose address contains `part` is there, and makes it the one that is driven.
    bool waitForPage(const QString& part);
    /// Waits until `script`, evaluated in the page, is true.
    bool waitFor(const QString& script);
    QJsonValue evaluate(const QString& script);
    [[nodiscard]] QUrl address();
    void goTo(const QUrl& url);
    /// Types into the element that `selector` names.
    void type(const QString& selector, const QString& text);
    void press(const QString& selector);
    void closePage();
    void screenshot(const QString& file);

private:
    QJsonObject command(const QString& method, const QJsonObject& parameters = {}, const QString& page = {});
    void read();
    void receive(const QJsonObject& message);

    DesktopSession& m_session;
    QProcess m_process;
    int m_commands = -1; ///< what is written here the browser reads
    int m_answers = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QByteArray m_received;
    QMap<int, QJsonObject> m_results;
    QMap<QString, QString> m_pages; ///< addresses by target
    QString m_target;               ///< of the page that is driven
    QString m_attachment;
    int m_lastId = 0;
};

} // namespace quillo::test
