import QtQuick
import Quillo

// A key cap seen from above, pressed and lit while the key is held.
Rectangle {
    id: key

    property string label
    property bool down: false
    property bool proven: false
    readonly property int travel: Math.round(5 * Theme.unit)

    implicitWidth: Math.max(Math.round(120 * Theme.unit), Math.ceil(name.implicitWidth) + Math.round(56 * Theme.unit))
    implicitHeight: Math.round(72 * Theme.unit)
    radius: Math.round(14 * Theme.unit)
    color: down ? Qt.darker(Theme.accent, 1.25) : Theme.outline
    antialiasing: true
    Accessible.role: Accessible.Graphic
    Accessible.name: label

    Rectangle {
        id: face
        anchors { left: parent.left; right: parent.right }
        y: key.down ? key.travel - 2 : 0
        height: parent.height - key.travel
        radius: parent.radius
        color: key.down ? Theme.accent : Theme.raised
        border.width: key.proven && !key.down ? 2 : 1
        border.color: key.down ? Theme.accent : key.proven ? Theme.success : Theme.outline
        antialiasing: true

        Text {
            id: name
            anchors.centerIn: parent
            width: Math.min(implicitWidth, parent.width - Math.round(16 * Theme.unit))
            elide: Text.ElideRight
            text: key.label
            textFormat: Text.PlainText
            color: key.down ? Theme.surface : Theme.text
            font.pixelSize: Math.round(Theme.fontSize * 1.3)
            font.weight: Font.Medium
            Accessible.ignored: true
        }
    }
}
