#pragma once

#include <QCoreApplication>
#include <QKeyEvent>
#include <QWindow>

namespace quillo::test {

/// Presses and releases a key in `window`.
inline void press(QWindow& window, int key, const QString& text = {}, Qt::KeyboardModifiers modifiers = {}) {
    for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
        QKeyEvent event(type, key, modifiers, text);
        QCoreApplication::sendEvent(&window, &event);
    }
}

/// Types capital letters.
inline void type(QWindow& window, const QString& letters) {
    for (const auto letter : letters)
        press(window, letter.toUpper().unicode(), letter);
}

} // namespace quillo::test
