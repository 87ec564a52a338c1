#pragma once

#include "Pages/PageTexts.h"

#include <string>

namespace quillo::server {

/// The content of a page's form and its errors. Texts are plain; the page escapes them.
struct SignInForm {
    PageLanguage language;
    bool isRegistration = false;
    std::string query; ///< of the authorization request, for the form's address and the link to the other page
    std::string token; ///< against forged requests
    std::string cancelUrl;

    std::string fullName;
    std::string email;

    std::string alert;      ///< about the whole form form
    bool isRefused = false; ///< the e-mail address or the password is wrong; the page must not reveal which
    std::string nameError;
    std::string emailError;
    std::string passwordError;
};

/// The page to sign in or to create an account. Complete HTML.
std::string signInPage(const SignInForm& form);

/// The page after signing in, which opens `callbackUrl` automatically and by a button.
std::string signedInPage(const std::string& callbackUrl, bool isNewAccount, PageLanguage language = {});

/// A page that explains why there is no form.
std::string messagePage(const std::string& title, const std::string& text, PageLanguage language = {});

} // namespace quillo::server
