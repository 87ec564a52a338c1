import QtQuick
import Quillo

// A round button with a glyph. Takes no keyboard focus.
Item {
    id: button
    property string glyph
    property string label
    property color color: Theme.text
    signal clicked

    implicitWidth: Math.round(26 * Theme.unit)
    implicitHeight: implicitWidth
    Accessible.role: Accessible.Button
    Accessible.name: label
    Accessible.onPressAction: clicked()

    Rectangle {
        anchors.fill: parent
        radius: height / 2
        color: area.pressed ? Theme.outline : Theme.raised
        border.width: area.containsMouse ? 1 : 0
        border.color: Theme.outline
        antialiasing: true
    }
    Glyph {
        anchors.centerIn: parent
        width: Math.round(16 * Theme.unit)
        height: width
        name: button.glyph
        color: button.color
    }
    MouseArea {
        id: area
        anchors.fill: parent
        hoverEnabled: true
        onClicked: button.clicked()
    }
}
