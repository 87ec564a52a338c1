#include "Transport/CertificateAuthority.h"

#include "Foundation/Files.h"
#include "Foundation/Log.h"

#include <arpa/inet.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace quillo::server {
namespace {

using std::chrono::hours;
using std::chrono::system_clock;

constexpr auto authorityLifetime = hours(24 * 3650);
constexpr auto serverLifetime = hours(24 * 365);
constexpr auto authorityMargin = hours(24 * 90);
constexpr auto serverMargin = hours(24 * 30);

template <auto Free>
struct Deleter {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;
using Memory = std::unique_ptr<BIO, Deleter<BIO_free_all>>;

struct Identity {
    Certificate certificate;
    Key key;
};

void require(bool condition, const char* step) {
    if (condition)
        return;
    char reason[256];
    ERR_error_string_n(ERR_get_error(), reason, sizeof reason);
    throw std::runtime_error(std::string("cannot make the server's certificate: ") + step + ": " + reason);
}

Key makeKey() {
    Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "generating a P-256 key");
    return key;
}

void addExtension(X509* certificate, X509* issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    require(extension != nullptr, value.c_str());
    require(X509_add_ext(certificate, extension.get(), -1) == 1, value.c_str());
}

Certificate beginCertificate(const std::string& name, EVP_PKEY* key, system_clock::time_point now,
                             std::chrono::seconds lifetime) {
    Certificate certificate(X509_new());
    require(certificate != nullptr, "allocating");
    X509_set_version(certificate.get(), X509_VERSION_3);
    unsigned char serial[16];
    require(RAND_bytes(serial, sizeof serial) == 1, "the random source");
    serial[0] &= 0x7f;
    BIGNUM* number = BN_bin2bn(serial, sizeof serial, nullptr);
    const bool numbered = BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate.get())) != nullptr;
    BN_free(number);
    require(numbered, "the serial number");
    // Valid from an hour ago, for clients whose clock is slightly behind.
    const time_t begin = system_clock::to_time_t(now - hours(1));
    const time_t end = system_clock::to_time_t(now + lifetime);
    require(ASN1_TIME_set(X509_getm_notBefore(certificate.get()), begin) != nullptr, "the begin of validity");
    require(ASN1_TIME_set(X509_getm_notAfter(certificate.get()), end) != nullptr, "the end of validity");
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    const auto* text = reinterpret_cast<const unsigned char*>(name.c_str());
    require(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1, "the name");
    require(X509_set_pubkey(certificate.get(), key) == 1, "the public key");
    return certificate;
}

Identity makeAuthority(system_clock::time_point now) {
    Identity authority;
    authority.key = makeKey();
    authority.certificate = beginCertificate("Quillo server authority", authority.key.get(), now, authorityLifetime);
    X509* certificate = authority.certificate.get();
    require(X509_set_issuer_name(certificate, X509_get_subject_name(certificate)) == 1, "the issuer");
    addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
    require(X509_sign(certificate, authority.key.get(), EVP_sha256()) > 0, "signing");
    return authority;
}

bool isAddress(const std::string& host) {
    unsigned char address[16];
    return ::inet_pton(AF_INET, host.c_str(), address) == 1 || ::inet_pton(AF_INET6, host.c_str(), address) == 1;
}

std::vector<std::string> allHosts(const std::vector<std::string>& hosts) {
    std::vector<std::string> all{"localhost", "127.0.0.1", "::1"};
    for (const auto& host : hosts) {
        if (std::find(all.begin(), all.end(), host) == all.end())
            all.push_back(host);
    }
    return all;
}

Identity makeServer(const Identity& authority, const std::vector<std::string>& hosts, system_clock::time_point now) {
    Identity server;
    server.key = makeKey();
    server.certificate = beginCertificate("quillo-server", server.key.get(), now, serverLifetime);
    X509* certificate = server.certificate.get();
    X509* issuer = authority.certificate.get();
    require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1, "the issuer");
    addExtension(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, issuer, NID_key_usage, "critical,digitalSignature");
    addExtension(certificate, issuer, NID_ext_key_usage, "serverAuth");
    addExtension(certificate, issuer, NID_subject_key_identifier, "hash");
    addExtension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
    std::string names;
    for (const auto& host : hosts)
        names += (names.empty() ? "" : ",") + std::string(isAddress(host) ? "IP:" : "DNS:") + host;
    addExtension(certificate, issuer, NID_subject_alt_name, names);
    require(X509_sign(certificate, authority.key.get(), EVP_sha256()) > 0, "signing");
    return server;
}

std::string certificateText(X509* certificate) {
    const Memory memory(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509(memory.get(), certificate) == 1, "writing");
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<size_t>(size)};
}

std::string keyText(EVP_PKEY* key) {
    const Memory memory(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_PrivateKey(memory.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1, "writing");
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<size_t>(size)};
}

/// Refuses a passphrase, instead of asking for one on the terminal.
int noPassphrase(char*, int, int, void*) { return -1; }

/// The content of the two files; empty members when they are missing, damaged, or do not match.
Identity load(const std::filesystem::path& certificateFile, const std::filesystem::path& keyFile) {
    const auto certificateContent = readFile(certificateFile);
    const auto keyContent = readFile(keyFile);
    if (!certificateContent || !keyContent)
        return {};
    const Memory certificateMemory(
        BIO_new_mem_buf(certificateContent->data(), static_cast<int>(certificateContent->size())));
    const Memory keyMemory(BIO_new_mem_buf(keyContent->data(), static_cast<int>(keyContent->size())));
    Identity identity;
    identity.certificate.reset(PEM_read_bio_X509(certificateMemory.get(), nullptr, noPassphrase, nullptr));
    identity.key.reset(PEM_read_bio_PrivateKey(keyMemory.get(), nullptr, noPassphrase, nullptr));
    const bool fits = identity.certificate && identity.key &&
                      X509_check_private_key(identity.certificate.get(), identity.key.get()) == 1;
    ERR_clear_error();
    return fits ? std::move(identity) : Identity{};
}

bool lasts(X509* certificate, system_clock::time_point now, std::chrono::seconds margin) {
    time_t limit = system_clock::to_time_t(now + margin);
    time_t begin = system_clock::to_time_t(now);
    return X509_cmp_time(X509_get0_notAfter(certificate), &limit) > 0 &&
           X509_cmp_time(X509_get0_notBefore(certificate), &begin) < 0;
}

bool covers(X509* certificate, const std::vector<std::string>& hosts) {
    return std::all_of(hosts.begin(), hosts.end(), [&](const std::string& host) {
        return isAddress(host) ? X509_check_ip_asc(certificate, host.c_str(), 0) == 1
                               : X509_check_host(certificate, host.c_str(), host.size(), 0, nullptr) == 1;
    });
}

bool isIssuedBy(X509* certificate, const Identity& authority) {
    const bool issued = X509_verify(certificate, authority.key.get()) == 1;
    ERR_clear_error();
    return issued;
}

} // namespace

CertificateFiles ensureCertificates(const std::filesystem::path& folder, const std::vector<std::string>& hosts,
                                    system_clock::time_point now) {
    makePrivateFolder(folder);
    const FileLock lock(folder / "certificates.lock");
    CertificateFiles files{folder / "authority.pem", folder / "authority.key", folder / "server.pem",
                           folder / "server.key"};
    const auto names = allHosts(hosts);

    Identity authority = load(files.authority, files.authorityKey);
    if (!authority.certificate || !lasts(authority.certificate.get(), now, authorityMargin)) {
        authority = makeAuthority(now);
        // Write the key first: a certificate without its key would look like a damaged pair.
        writeFileAtomically(files.authorityKey, keyText(authority.key.get()));
        writeFileAtomically(files.authority, certificateText(authority.certificate.get()), 0644);
        files.changed = true;
        log(LogLevel::info, "certificates", "made a certificate authority: " + files.authority.string());
    }
    const Identity server = load(files.chain, files.key);
    if (!server.certificate || !lasts(server.certificate.get(), now, serverMargin) ||
        !covers(server.certificate.get(), names) || !isIssuedBy(server.certificate.get(), authority)) {
        const Identity renewed = makeServer(authority, names, now);
        writeFileAtomically(files.key, keyText(renewed.key.get()));
        writeFileAtomically(files.chain,
                            certificateText(renewed.certificate.get()) + certificateText(authority.certificate.get()));
        files.changed = true;
        log(LogLevel::info, "certificates", "issued the server's certificate: " + files.chain.string());
    }
    return files;
}

} // namespace quillo::server
