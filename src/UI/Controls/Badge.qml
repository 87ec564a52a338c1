import QtQuick
import Quillo

// A glyph or a letter on a disc in a pale shade of the same colour.
Rectangle {
    property string glyph
    property string letter
    property color tint: Theme.accent

    implicitWidth: Math.round(34 * Theme.unit)
    implicitHeight: implicitWidth
    radius: width / 2
    color: Qt.rgba(tint.r, tint.g, tint.b, Theme.dark ? 0.20 : 0.13)
    antialiasing: true

    Glyph {
        anchors.centerIn: parent
        width: Math.round(parent.width * 0.56)
        height: width
        name: parent.glyph
        color: parent.tint
        visible: parent.letter === ""
    }
    Text {
        anchors.centerIn: parent
        text: parent.letter
        textFormat: Text.PlainText
        color: parent.tint
        font.pixelSize: Math.round(parent.width * 0.46)
        font.weight: Font.DemiBold
        Accessible.ignored: true
    }
}
