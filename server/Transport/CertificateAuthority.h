#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace quillo::server {

/// The files of a server's own certificates, all in one private folder and PEM.
struct CertificateFiles {
    std::filesystem::path authority;    ///< "authority.pem": what clients trust
    std::filesystem::path authorityKey; ///< "authority.key", 0600
    std::filesystem::path chain;        ///< "server.pem": the server's certificate, then the authority's
    std::filesystem::path key;          ///< "server.key", 0600
    bool changed = false;               ///< something was made or renewed
};

/// Creates what is missing: an authority (P-256, ten years) and a server certificate for localhost, 127.0.0.1, ::1 and
/// `hosts` (names or addresses), valid for a year. Renews the server certificate when it has less than 30 days left,
/// was not issued by this authority, does not match its key or lacks a host. Renews the authority only when its files
/// are unusable or it has less than 90 days left, because clients trust its content. Two processes may call it at once.
/// Throws std::runtime_error with the file and the cause.
CertificateFiles ensureCertificates(const std::filesystem::path& folder, const std::vector<std::string>& hosts,
                                    std::chrono::system_clock::time_point now);

} // namespace quillo::server
