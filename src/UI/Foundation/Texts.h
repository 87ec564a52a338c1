#pragma once

#include "Core/UserMessage.h"

#include <QJSValue>
#include <QObject>
#include <QString>

#include <functional>

namespace quillo {

/// The interface's texts: `Texts.t("pill.ready")` in QML. Main thread.
class Texts final : public QObject {
    Q_OBJECT
    /// A function from a key to its text. It is a property so that every binding that calls it is evaluated again when
    /// the interface language changes.
    Q_PROPERTY(QJSValue t READ translator NOTIFY changed)

public:
    Texts();

    /// The text of `key` in the interface language.
    [[nodiscard]] static QString lookUp(const QString& key);
    [[nodiscard]] static QString of(const UserMessage& message);
    /// Calls `update` after every change of the interface language, while `receiver` lives.
    static void follow(const QObject* receiver, const std::function<void()>& update);

    [[nodiscard]] QJSValue translator();
    /// What the function `t` calls.
    Q_INVOKABLE QString find(const QString& key) const { return lookUp(key); }

Q_SIGNALS:
    void changed();

private:
    QJSValue m_translator;
};

} // namespace quillo
