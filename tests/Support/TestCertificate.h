#pragma once

#include <QSslConfiguration>
#include <QString>

namespace quillo::test {

/// A certificate authority and a server certificate for "localhost" that it signed, both made now.
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
