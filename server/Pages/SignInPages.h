#pragma once

#include "Pages/PageTexts.h"

#include <string>

namespace quillo::server {

/// What the form of a page holds, and what is wrong with it. Texts are plain; the page escapes them.
struct SignInForm {
    PageLanguage language;
    bool isRegistration = false;
    std::string query; ///< of the authorization request, for the form's address and the link to the other page
    std::string token; ///< against forged requests
    std::string cancelUrl;

    std::string fullName;
    std::string email;

    std::string alert;      ///< about the whole
    bool isRefused = false; ///< the e-mail address or the password is wrong, and it must not be told which
    std::string nameError;
    std::string emailError;
    std::string passwordError;
};

/// The page to sign in or to make an account. Complete HTML.
std::string signInPage(const SignInForm& form);

/// The page after it, which opens `callbackUrl` by itself and by a button.
std::string signedInPage(const std::string& callbackUrl, bool isNewAccount, PageLanguage language = {});

/// A page that says why there is nothing to fill in.
std::string messagePage(const std::string& title, const std::string& text, PageLanguage language = {});

} // namespace quillo::server
