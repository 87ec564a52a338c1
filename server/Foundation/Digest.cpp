#include "Foundation/Digest.h"

#include <bit>
#include <openssl/evp.h>
#include <stdexcept>

namespace quillo::server {

void Sha256::Closer::operator()(void* context) const { EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(context)); }

Sha256::Sha256() : m_context(EVP_MD_CTX_new()) {
    if (!m_context || EVP_DigestInit_ex(static_cast<EVP_MD_CTX*>(m_context.get()), EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("OpenSSL cannot compute SHA-256");
}

void Sha256::update(std::string_view bytes) {
    if (EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(m_context.get()), bytes.data(), bytes.size()) != 1)
        throw std::runtime_error("OpenSSL cannot compute SHA-256");
}

void Sha256::update(std::span<const int16_t> samples) {
    static_assert(std::endian::native == std::endian::little);
    update({reinterpret_cast<const char*>(samples.data()), samples.size_bytes()});
}

Sha256Value Sha256::finish() {
    Sha256Value value{};
    if (EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(m_context.get()), value.data(), nullptr) != 1)
        throw std::runtime_error("OpenSSL cannot compute SHA-256");
    return value;
}

} // namespace quillo::server
