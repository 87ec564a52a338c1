#pragma once

#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>

#include <memory>

namespace quillo {

/// The one QML engine, made at first use and kept: a second would cost its load time again, dropping it frees little.
class QmlEngineHost {
public:
    QmlEngineHost() = default;

    [[nodiscard]] QQmlEngine& engine();
    /// Makes the item in `file`, a path below the interface's resources ("Pill/Pill.qml"), with `names` as context
    /// properties. A fault in a file that is compiled in is a fault of the build: it ends the program with its text.
    [[nodiscard]] std::unique_ptr<QQuickItem> createItem(const QString& file,
                                                         const std::vector<std::pair<QString, QObject*>>& names);
    /// Gives back what windows that are gone have left behind.
    void trim();

private:
    std::unique_ptr<QQmlEngine> m_engine;
};

} // namespace quillo
