#pragma once

#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>

#include <memory>

namespace quillo {

/// The only QML engine, created at first use and kept: a second one would have to be loaded again, and destroying it
/// frees little.
class QmlEngineHost {
public:
    QmlEngineHost() = default;

    [[nodiscard]] QQmlEngine& engine();
    /// Creates the item in `file`, a path below the interface's resources ("Pill/Pill.qml"), with `names` as context
    /// properties. An error in a compiled-in file is a build error and ends the program with its text.
    [[nodiscard]] std::unique_ptr<QQuickItem> createItem(const QString& file,
                                                         const std::vector<std::pair<QString, QObject*>>& names);
    /// Frees memory left by destroyed windows.
    void trim();

private:
    std::unique_ptr<QQmlEngine> m_engine;
};

} // namespace quillo
