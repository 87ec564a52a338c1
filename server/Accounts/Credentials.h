#pragma once

#include <optional>
#include <string>

namespace quillo::server {

/// The normalised form of an e-mail address: trimmed and in lower case (ASCII). Empty when it is not an address: at
/// most 254 bytes of UTF-8, text on both sides of one "@", no spaces or control characters.
std::optional<std::string> normalisedEmail(const std::string& text);

/// Why a password or a name is refused.
enum class Objection {
    passwordNotChosen, ///< empty
    passwordTooLong,
    passwordUntypable, ///< holds control characters or is not UTF-8
    passwordTooShort,
    passwordEasy,
    passwordIsEmail,
    nameUnshowable, ///< holds control characters or is not UTF-8
    nameTooLong,
};

/// What is wrong with a password that is to be set; empty when it may be used.
std::optional<Objection> objectionTo(const std::string& password, const std::string& email);

/// The problem with a full name; empty when it is acceptable. An empty name is.
std::optional<Objection> objectionToName(const std::string& name);

} // namespace quillo::server
