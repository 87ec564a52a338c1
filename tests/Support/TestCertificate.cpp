#include "Support/TestCertificate.h"

#include <QSslCertificate>
#include <QSslKey>

#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <stdexcept>

namespace quillo::test {

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&::EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&::X509_free)>;

void addExtension(X509* certificate, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&::X509_EXTENSION_free)> extension(
        ::X509V3_EXT_conf_nid(nullptr, &context, kind, value), &::X509_EXTENSION_free);
    if (!extension || ::X509_add_ext(certificate, extension.get(), -1) != 1)
        throw std::runtime_error("certificate extension");
}

Certificate make(const char* name, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey) {
    Certificate certificate(::X509_new(), &::X509_free);
    ::X509_set_version(certificate.get(), 2);
    ::ASN1_INTEGER_set(::X509_get_serialNumber(certificate.get()), issuer ? 2 : 1);
    ::X509_gmtime_adj(::X509_getm_notBefore(certificate.get()), -3600);
    ::X509_gmtime_adj(::X509_getm_notAfter(certificate.get()), 3600);
    auto* const subject = ::X509_get_subject_name(certificate.get());
    ::X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
    ::X509_set_issuer_name(certificate.get(), issuer ? ::X509_get_subject_name(issuer) : subject);
    ::X509_set_pubkey(certificate.get(), key);
    if (issuer) {
        addExtension(certificate.get(), NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
    } else {
        addExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
        addExtension(certificate.get(), NID_key_usage, "critical,keyCertSign");
    }
    if (::X509_sign(certificate.get(), issuerKey, ::EVP_sha256()) == 0)
        throw std::runtime_error("X509_sign");
    return certificate;
}

template <class Write>
QByteArray pem(Write write) {
    const std::unique_ptr<BIO, decltype(&::BIO_free)> output(::BIO_new(::BIO_s_mem()), &::BIO_free);
    write(output.get());
    char* data = nullptr;
    const auto size = BIO_get_mem_data(output.get(), &data);
    return {data, static_cast<qsizetype>(size)};
}

Key newKey() { return {::EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"), &::EVP_PKEY_free}; }

} // namespace

TestCertificate::TestCertificate() {
    const auto authorityKey = newKey();
    const auto authority = make("Test authority", authorityKey.get(), nullptr, authorityKey.get());
    const auto key = newKey();
    const auto certificate = make("localhost", key.get(), authority.get(), authorityKey.get());
    m_authority = pem([&](BIO* output) { ::PEM_write_bio_X509(output, authority.get()); });
    m_certificate = pem([&](BIO* output) { ::PEM_write_bio_X509(output, certificate.get()); });
    m_key =
        pem([&](BIO* output) { ::PEM_write_bio_PrivateKey(output, key.get(), nullptr, nullptr, 0, nullptr, nullptr); });
}

QSslConfiguration TestCertificate::serverConfiguration() const {
    QSslConfiguration configuration;
    configuration.setLocalCertificate(QSslCertificate(m_certificate, QSsl::Pem));
    configuration.setPrivateKey(QSslKey(m_key, QSsl::Ec, QSsl::Pem));
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    return configuration;
}

} // namespace quillo::test
