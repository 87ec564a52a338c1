#pragma once

#include "Chromium.h"

#include <memory>

namespace quillo::test {

/// A session with the application, its own server and a browser, in which people sign in.
class AccountDesktop {
public:
    explicit AccountDesktop(DesktopSession::Options options = {}, const QString& serverOptions = {});

    DesktopSession session;
    std::unique_ptr<Chromium> browser;

    static const QString email;
    static const QString password;

    /// Fills in the page that is open and sends it.
    void submitForm(bool asNew);
    /// From the command to the application's word that it is done.
    bool signIn(bool asNew);
    /// The URL that the page which says so opens.
    QString callback();
    /// What the command line says of the account.
    QString account() { return session.quillo({u"account"_qs}); }
    bool waitForAccount(const QString& words);
    [[nodiscard]] int logged(const char* words) const { return session.logged(QString::fromUtf8(words)); }
};

} // namespace quillo::test
