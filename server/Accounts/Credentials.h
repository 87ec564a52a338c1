#pragma once

#include <optional>
#include <string>

namespace quillo::server {

/// The form in which an e-mail address names an account: without blanks around it and in lower case (ASCII). Empty when
/// it is no address: at most 254 bytes of UTF-8, something on both sides of one "@", no blanks or control characters.
std::optional<std::string> normalisedEmail(const std::string& text);

/// What is wrong with a password that is to be set, as a sentence for its owner; empty when it may be used.
std::optional<std::string> objectionTo(const std::string& password, const std::string& email);

/// What is wrong with a full name; empty when it may be used. An empty name may.
std::optional<std::string> objectionToName(const std::string& name);

} // namespace quillo::server
