#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillo::server {

/// The bytes of standard base64 with padding and without line breaks (RFC 4648 section 4); empty when it is not that.
std::optional<std::vector<uint8_t>> decodeBase64(std::string_view text);

/// The text behind percent-encoding in a query component; `+` stays as it is. Broken escapes are kept verbatim.
std::string decodePercent(std::string_view text);

/// 32 bytes from the system's secure source as base64url without padding (43 characters).
std::string randomToken();

/// A random UUID (RFC 9562, version 4) in lower case.
std::string randomUuid();

/// SHA-256.
std::array<uint8_t, 32> sha256(std::string_view data);

} // namespace quillo::server
