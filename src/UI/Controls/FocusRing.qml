import QtQuick
import Quillo

// A ring around its parent while the parent has the keyboard focus.
Rectangle {
    anchors.fill: parent
    anchors.margins: -Math.round(3 * Theme.unit)
    radius: parent.radius + Math.round(3 * Theme.unit)
    color: "transparent"
    border.width: Math.max(2, Math.round(2 * Theme.unit))
    border.color: Theme.accent
    antialiasing: true
    visible: parent.activeFocus
}
