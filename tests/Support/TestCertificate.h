#pragma once

#include <QSslConfiguration>

namespace quillo::test {

/// A new certificate authority and a server certificate for "localhost" signed by it.
class TestCertificate {
public:
    TestCertificate();

    [[nodiscard]] QByteArray authorityPem() const { return m_authority; }
    [[nodiscard]] QSslConfiguration serverConfiguration() const;

private:
    QByteArray m_authority;
    QByteArray m_certificate;
    QByteArray m_key;
};

} // namespace quillo::test
