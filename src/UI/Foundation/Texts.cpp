#include "UI/Foundation/Texts.h"

#include "Localization/LocalizationManager.h"

#include <QJSEngine>

namespace quillo {

Texts::Texts() {
    follow(this, [this] { Q_EMIT changed(); });
}

QString Texts::lookUp(const QString& key) { return LocalizationManager::shared().t(key); }

QString Texts::of(const UserMessage& message) { return LocalizationManager::shared().t(message); }

void Texts::follow(const QObject* receiver, const std::function<void()>& update) {
    QObject::connect(&LocalizationManager::shared(), &LocalizationManager::localeChanged, receiver, update);
}

QJSValue Texts::translator() {
    if (m_translator.isUndefined()) {
        auto* engine = qjsEngine(this);
        m_translator = engine->evaluate(QStringLiteral("(texts => key => texts.find(key))"))
                           .call({engine->toScriptValue<QObject*>(this)});
    }
    return m_translator;
}

} // namespace quillo
