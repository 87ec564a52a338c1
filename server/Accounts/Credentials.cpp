#include "Accounts/Credentials.h"

#include "Accounts/PasswordHash.h"
#include "Foundation/Encoding.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace quillo::server {
namespace {

constexpr size_t minPasswordCharacters = 10;
constexpr size_t maxEmailBytes = 254; // RFC 5321 section 4.5.3.1.3, less the angle brackets
constexpr size_t maxNameCharacters = 100;

/// Common passwords of ten or more characters, which attackers try first.
constexpr std::array<std::string_view, 28> refused = {
    "password12", "password123",  "password1234", "passw0rd123",  "passwordpassword", "mypassword1", "1234567890",
    "0123456789", "0987654321",   "12345678910",  "123456789a",   "1234512345",       "1q2w3e4r5t",  "q1w2e3r4t5",
    "qwertyuiop", "qwerty1234",   "qwerty12345",  "qwerty123456", "1qaz2wsx3edc",     "asdfghjkl1",  "asdfghjkl;",
    "abcdefghij", "abcdefghijkl", "iloveyou12",   "letmein123",   "welcome123",       "changeme123", "quilloquillo",
};

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string lowered(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), lower);
    return result;
}

} // namespace

std::optional<std::string> normalisedEmail(const std::string& text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return std::nullopt;
    const std::string email = lowered(text.substr(first, text.find_last_not_of(" \t") - first + 1));
    const auto at = email.find('@');
    const bool hasForm = at != std::string::npos && at > 0 && at + 1 < email.size() && email.rfind('@') == at;
    if (!hasForm || email.size() > maxEmailBytes || !countCharacters(email) || hasControlCharacters(email) ||
        email.find_first_of(" <>\"(),;:\\") != std::string::npos)
        return std::nullopt;
    const auto domain = std::string_view(email).substr(at + 1);
    if (domain.front() == '.' || domain.back() == '.' || domain.find("..") != std::string_view::npos)
        return std::nullopt;
    return email;
}

std::optional<Objection> objectionTo(const std::string& password, const std::string& email) {
    if (password.empty())
        return Objection::passwordNotChosen;
    if (password.size() > maxPasswordBytes)
        return Objection::passwordTooLong;
    const auto characters = countCharacters(password);
    if (!characters || hasControlCharacters(password))
        return Objection::passwordUntypable;
    if (*characters < minPasswordCharacters)
        return Objection::passwordTooShort;
    const std::string plain = lowered(password);
    const bool isOneCharacter = plain.find_first_not_of(plain.front()) == std::string::npos;
    if (isOneCharacter || std::ranges::find(refused, plain) != refused.end())
        return Objection::passwordEasy;
    if (plain == email || plain == email.substr(0, email.find('@')))
        return Objection::passwordIsEmail;
    return std::nullopt;
}

std::optional<Objection> objectionToName(const std::string& name) {
    const auto characters = countCharacters(name);
    if (!characters || hasControlCharacters(name))
        return Objection::nameUnshowable;
    if (*characters > maxNameCharacters)
        return Objection::nameTooLong;
    return std::nullopt;
}

} // namespace quillo::server
