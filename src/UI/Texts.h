#pragma once

#include <QObject>
#include <QString>

namespace quillo {

/// The interface's texts for QML: `Texts.t("pill.ready")`.
class Texts final : public QObject {
    Q_OBJECT
public:
    /// The text of `key` in the interface language.
    [[nodiscard]] static QString lookUp(const QString& key);
    Q_INVOKABLE QString t(const QString& key) const { return lookUp(key); }
};

} // namespace quillo
