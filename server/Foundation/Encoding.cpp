#include "Foundation/Encoding.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace quillo::server {
namespace {

void fillRandom(uint8_t* bytes, size_t count) {
    if (RAND_bytes(bytes, static_cast<int>(count)) != 1)
        throw std::runtime_error("the system's random source failed");
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

std::optional<std::vector<uint8_t>> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    if (text.empty())
        return std::vector<uint8_t>();
    const auto padding = text.find('=');
    const size_t padded = padding == std::string_view::npos ? 0 : text.size() - padding;
    if (padded > 2 || (padded == 2 && text.back() != '='))
        return std::nullopt;
    // The decoder skips white space at both ends, which would accept a wrong length.
    if (static_cast<unsigned char>(text.front()) <= ' ' || static_cast<unsigned char>(text.back()) <= ' ')
        return std::nullopt;
    std::vector<uint8_t> bytes(text.size() / 4 * 3);
    const int count = EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                      static_cast<int>(text.size()));
    if (count != static_cast<int>(bytes.size()))
        return std::nullopt;
    bytes.resize(bytes.size() - padded);
    return bytes;
}

std::string decodePercent(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0) {
            decoded += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

std::string encodeBase64Url(std::span<const uint8_t> bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), static_cast<int>(bytes.size()));
    text.resize((bytes.size() * 4 + 2) / 3);
    for (char& c : text)
        c = c == '+' ? '-' : c == '/' ? '_' : c;
    return text;
}

std::string encodePercent(std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    constexpr std::string_view marks = "-._~";
    std::string encoded;
    for (const char c : text) {
        const bool isAlphanumeric = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (isAlphanumeric || marks.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += {'%', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return encoded;
}

std::string randomToken() {
    std::array<uint8_t, 32> bytes{};
    fillRandom(bytes.data(), bytes.size());
    return encodeBase64Url(bytes);
}

std::string randomUuid() {
    std::array<uint8_t, 16> bytes{};
    fillRandom(bytes.data(), bytes.size());
    bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3f) | 0x80);
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text += '-';
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
        text += pair;
    }
    return text;
}

std::array<uint8_t, 32> sha256(std::string_view data) {
    std::array<uint8_t, 32> digest{};
    if (EVP_Digest(data.data(), data.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not available in this OpenSSL");
    return digest;
}

std::array<uint8_t, 32> hmacSha256(std::string_view key, std::string_view data) {
    std::array<uint8_t, 32> digest{};
    if (!HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
              reinterpret_cast<const unsigned char*>(data.data()), data.size(), digest.data(), nullptr))
        throw std::runtime_error("HMAC is not available in this OpenSSL");
    return digest;
}

bool equalSecrets(std::string_view left, std::string_view right) {
    return left.size() == right.size() && CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

std::optional<size_t> countCharacters(std::string_view text) {
    size_t count = 0;
    for (size_t i = 0; i < text.size(); ++count) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const size_t length = lead < 0x80 ? 1 : lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
        if ((lead >= 0x80 && lead < 0xc2) || lead > 0xf4 || text.size() - i < length)
            return std::nullopt;
        uint32_t code = length == 1 ? lead : lead & (0x7fU >> length);
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xc0) != 0x80)
                return std::nullopt;
            code = code << 6 | (next & 0x3f);
        }
        const bool isOverlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
        if (isOverlong || code > 0x10ffff || (code >= 0xd800 && code < 0xe000))
            return std::nullopt;
        i += length;
    }
    return count;
}

bool hasControlCharacters(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool isC1 = byte == 0xc2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xa0;
        if (byte < ' ' || byte == 0x7f || isC1)
            return true;
    }
    return false;
}

} // namespace quillo::server
