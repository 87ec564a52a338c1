#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace quillo {

/// Secrets by key, for this application and user. Calls may wait for the desktop's secret service up to a short
/// deadline; a missing or locked one makes `isAvailable` false.
class SecretStore {
public:
    virtual ~SecretStore() = default;
    [[nodiscard]] virtual bool isAvailable() = 0;
    virtual std::optional<QByteArray> read(const QString& key) = 0;
    virtual bool write(const QString& key, const QByteArray& value) = 0;
    virtual bool remove(const QString& key) = 0;
};

} // namespace quillo
