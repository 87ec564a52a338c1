#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quillo::server {

/// The cost of computing one hash.
struct PasswordCost {
    uint32_t memoryKiB;
    uint32_t passes;
    uint32_t lanes;
    bool operator==(const PasswordCost&) const = default;
};

/// Argon2id with the memory and passes of RFC 9106 section 4 for memory-constrained servers, in one lane because each
/// hash has one thread. Stronger values take effect for an account at its next sign-in.
inline constexpr PasswordCost passwordCost{.memoryKiB = uint32_t{64} * 1024, .passes = 3, .lanes = 1};

/// Longer passwords are refused: hashing them would cost more without adding safety.
inline constexpr size_t maxPasswordBytes = 1024;

/// The password's Argon2id hash with a fresh salt, in the PHC string format. Takes `passwordCost.memoryKiB` of memory
/// and a large part of a second. Throws std::runtime_error when there is no memory.
std::string hashPassword(const std::string& password, const PasswordCost& cost = passwordCost);

/// True when `hash` was made from `password`. Takes the time of a hash with the costs in `hash`. Throws as above.
bool verifyPassword(const std::string& password, const std::string& hash);

/// True when `hash` was made with other costs than `cost`.
bool needsRehash(const std::string& hash, const PasswordCost& cost = passwordCost);

/// A hash that no password matches. Unknown accounts are checked against it, so that the check takes as long as for
/// known ones.
const std::string& unknownAccountHash();

} // namespace quillo::server
