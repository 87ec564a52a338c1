#include "Accounts/PasswordHash.h"

#include "Foundation/Encoding.h"

#include <argon2.h>
#include <array>
#include <cstdio>
#include <openssl/rand.h>
#include <stdexcept>
#include <vector>

namespace quillo::server {
namespace {

constexpr uint32_t saltBytes = 16;
constexpr uint32_t hashBytes = 32;

[[noreturn]] void hashingFailed(int result) {
    throw std::runtime_error(std::string("the password could not be hashed: ") + argon2_error_message(result));
}

} // namespace

std::string hashPassword(const std::string& password, const PasswordCost& cost) {
    std::array<uint8_t, saltBytes> salt{};
    if (RAND_bytes(salt.data(), static_cast<int>(salt.size())) != 1)
        throw std::runtime_error("the system's random source failed");
    std::vector<char> encoded(
        argon2_encodedlen(cost.passes, cost.memoryKiB, cost.lanes, saltBytes, hashBytes, Argon2_id));
    const int result = argon2id_hash_encoded(cost.passes, cost.memoryKiB, cost.lanes, password.data(), password.size(),
                                             salt.data(), salt.size(), hashBytes, encoded.data(), encoded.size());
    if (result != ARGON2_OK)
        hashingFailed(result);
    return encoded.data();
}

bool verifyPassword(const std::string& password, const std::string& hash) {
    const int result = argon2id_verify(hash.c_str(), password.data(), password.size());
    if (result == ARGON2_VERIFY_MISMATCH)
        return false;
    if (result != ARGON2_OK)
        hashingFailed(result);
    return true;
}

bool needsRehash(const std::string& hash, const PasswordCost& cost) {
    std::array<char, 96> prefix{};
    std::snprintf(prefix.data(), prefix.size(), "$argon2id$v=%d$m=%u,t=%u,p=%u$", ARGON2_VERSION_NUMBER, cost.memoryKiB,
                  cost.passes, cost.lanes);
    return !hash.starts_with(prefix.data());
}

const std::string& unknownAccountHash() {
    // Use random bytes instead of a computed hash, so that no password matches.
    static const std::string hash = [] {
        std::array<char, 96> prefix{};
        std::snprintf(prefix.data(), prefix.size(), "$argon2id$v=%d$m=%u,t=%u,p=%u$", ARGON2_VERSION_NUMBER,
                      passwordCost.memoryKiB, passwordCost.passes, passwordCost.lanes);
        // Standard base64 without padding; hexadecimal digits are within its alphabet: 22 for 16 bytes, 43 for 32. The
        // last digit holds fewer bits, the others of which must be 0.
        std::string digits = randomUuid() + randomUuid() + randomUuid();
        std::erase(digits, '-');
        return prefix.data() + digits.substr(0, saltBytes * 4 / 3) + "A$" + digits.substr(22, hashBytes * 4 / 3) + "A";
    }();
    return hash;
}

} // namespace quillo::server
