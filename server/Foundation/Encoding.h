#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillo::server {

/// The bytes of standard base64 with padding and without line breaks (RFC 4648 section 4); empty when it is not that.
std::optional<std::vector<uint8_t>> decodeBase64(std::string_view text);

/// Decodes percent-encoding in a query component; `+` is not changed. Invalid escapes are kept verbatim.
std::string decodePercent(std::string_view text);

/// base64url without padding (RFC 4648 section 5).
std::string encodeBase64Url(std::span<const uint8_t> bytes);

/// 32 bytes from the system's secure source as base64url without padding (43 characters).
std::string randomToken();

/// A random UUID (RFC 9562, version 4) in lower case.
std::string randomUuid();

/// SHA-256.
std::array<uint8_t, 32> sha256(std::string_view data);

/// HMAC with SHA-256 (RFC 2104).
std::array<uint8_t, 32> hmacSha256(std::string_view key, std::string_view data);

/// Compares in constant time: the time does not reveal where two texts of the same length differ.
bool equalSecrets(std::string_view left, std::string_view right);

/// Characters of a UTF-8 text (RFC 3629: neither surrogates nor overlong forms); empty when it is not UTF-8.
std::optional<size_t> countCharacters(std::string_view text);

/// True when the text contains control characters: U+0000 to U+001F and U+007F to U+009F, in UTF-8.
bool hasControlCharacters(std::string_view text);

/// Percent-encodes all but unreserved characters (RFC 3986 section 2.3).
std::string encodePercent(std::string_view text);

} // namespace quillo::server
