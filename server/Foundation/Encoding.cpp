#include "Foundation/Encoding.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

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
    // The decoder skips white space at either end, which would let a wrong length through.
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

std::string randomToken() {
    std::array<uint8_t, 32> bytes{};
    fillRandom(bytes.data(), bytes.size());
    std::array<unsigned char, 45> text{};
    EVP_EncodeBlock(text.data(), bytes.data(), static_cast<int>(bytes.size()));
    std::string token(reinterpret_cast<const char*>(text.data()), 43);
    for (char& c : token)
        c = c == '+' ? '-' : c == '/' ? '_' : c;
    return token;
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

} // namespace quillo::server
