#include "UI/Window/QmlEngineHost.h"

#include "UI/Controls/GlyphItem.h"
#include "UI/Controls/WaveformItem.h"
#include "UI/Foundation/Texts.h"

#include <QQmlComponent>

#include <malloc.h>

// The resources of a static library are linked only when initialised by name, outside of any namespace.
static void initializeResources() { Q_INIT_RESOURCE(quillo_ui); }

namespace quillo {

namespace {

const QString root = QStringLiteral("qrc:/quillo/ui/");

void registerTypes() {
    initializeResources();
    qmlRegisterType<WaveformItem>("Quillo", 1, 0, "Waveform");
    qmlRegisterType<GlyphItem>("Quillo", 1, 0, "Glyph");
    qmlRegisterType<ShadowItem>("Quillo", 1, 0, "Shadow");
    qmlRegisterSingletonType<Texts>("Quillo", 1, 0, "Texts", [](QQmlEngine*, QJSEngine*) -> QObject* {
        return new Texts; // owned by the engine
    });
    qmlRegisterSingletonType(QUrl(root + QStringLiteral("Theme.qml")), "Quillo", 1, 0, "Theme");
    for (const char* name : {"Badge", "ChoiceCard", "FocusRing", "PushButton", "RoundButton", "ScrollMark",
                             "ScrollPage", "SwitchRow", "Words"})
        qmlRegisterType(QUrl(root + QStringLiteral("Controls/%1.qml").arg(QLatin1String(name))), "Quillo", 1, 0, name);
    qmlRegisterType(QUrl(root + QStringLiteral("Account/AccountChoices.qml")), "Quillo", 1, 0, "AccountChoices");
    qmlRegisterType(QUrl(root + QStringLiteral("Language/LanguageList.qml")), "Quillo", 1, 0, "LanguageList");
}

} // namespace

QQmlEngine& QmlEngineHost::engine() {
    if (!m_engine) {
        static std::once_flag once;
        std::call_once(once, registerTypes);
        m_engine = std::make_unique<QQmlEngine>();
    }
    return *m_engine;
}

std::unique_ptr<QQuickItem> QmlEngineHost::createItem(const QString& file,
                                                      const std::vector<std::pair<QString, QObject*>>& names) {
    QQmlComponent component(&engine(), QUrl(root + file));
    auto* context = new QQmlContext(&engine());
    for (const auto& [name, object] : names)
        context->setContextProperty(name, object);
    std::unique_ptr<QQuickItem> item(qobject_cast<QQuickItem*>(component.create(context)));
    if (!item)
        qFatal("%s", qPrintable(component.errorString()));
    context->setParent(item.get());
    return item;
}

void QmlEngineHost::trim() {
    if (!m_engine)
        return;
    m_engine->collectGarbage();
    m_engine->trimComponentCache();
    // A window's many small allocations are scattered between permanent ones; without this call the allocator keeps
    // their pages.
    malloc_trim(0);
}

} // namespace quillo
