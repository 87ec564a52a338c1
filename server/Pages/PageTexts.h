#pragma once

#include <string>
#include <string_view>

namespace quillo::server {

/// The texts of the pages.
enum class PageText {
    signInHeading,
    registerHeading,
    signInLead,
    registerLead,
    nameLabel,
    optional,
    emailLabel,
    passwordLabel,
    passwordHint,
    signInButton,
    registerButton,
    haveAccount,
    newHere,
    toSignIn,
    toRegister,
    cancel,
    error,
    signedInHeading,
    accountReady,
    goBack,
    backButton,
    refused,
    busy,
    tooManyAttempts,
    tooManyAccounts,
    tryAgainIn,
    emailTaken,
    emailMissing,
    emailInvalid,
    passwordMissing,
    passwordNotChosen,
    passwordTooLong,
    passwordUntypable,
    passwordTooShort,
    passwordEasy,
    passwordIsEmail,
    nameUnshowable,
    nameTooLong,
    registrationClosedHeading,
    registrationClosed,
    wrongAddressHeading,
    wrongAddress,
    deadLinkHeading,
    deadLink,
    failedHeading,
    formDamaged,
    formForeign,
    formExpired,
    serverFailedHeading,
    serverFailed,
    notFound,
    requestRefused,
    backToQuillo,
};

/// A language of the pages, by its ISO 639-1 code.
struct PageLanguage {
    std::string_view code = "en";
    bool operator==(const PageLanguage&) const = default;
};

/// The language that a browser prefers among those of the pages, English when there is none. `accepted` is the
/// Accept-Language header (RFC 9110, 12.5.4).
PageLanguage pageLanguage(std::string_view accepted);

/// `text` in this language, with %1 replaced by `value`.
std::string pageText(PageText text, PageLanguage language, std::string_view value = {});

} // namespace quillo::server
