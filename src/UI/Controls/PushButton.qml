import QtQuick
import Quillo

// A text button. `kind` is "plain", "primary" for the usual choice, or "danger" for what cannot be undone.
Rectangle {
    id: button

    property string text
    property string kind: "plain"
    signal clicked()

    readonly property color fill: kind === "primary" ? Theme.accent : kind === "danger" ? Theme.failure : Theme.raised

    implicitWidth: Math.max(Math.round(88 * Theme.unit), Math.ceil(label.implicitWidth) + Math.round(32 * Theme.unit))
    implicitHeight: Math.round(36 * Theme.unit)
    radius: Math.round(9 * Theme.unit)
    color: area.pressed ? Qt.darker(fill, 1.15) : !area.containsMouse ? fill
        : Theme.dark ? Qt.lighter(fill, 1.08) : Qt.darker(fill, 1.03)
    border.width: kind === "plain" ? 1 : 0
    border.color: Theme.outline
    antialiasing: true

    activeFocusOnTab: true
    Keys.onReturnPressed: clicked()
    Keys.onEnterPressed: clicked()
    Keys.onSpacePressed: clicked()
    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.focusable: true
    Accessible.onPressAction: clicked()

    Text {
        id: label
        anchors.centerIn: parent
        width: Math.min(implicitWidth, parent.width - Math.round(16 * Theme.unit))
        elide: Text.ElideRight
        text: button.text
        textFormat: Text.PlainText
        color: button.kind === "plain" ? Theme.text : Theme.surface
        font.pixelSize: Theme.fontSize
        font.weight: button.kind === "plain" ? Font.Normal : Font.DemiBold
    }
    FocusRing {}
    MouseArea {
        id: area
        anchors.fill: parent
        hoverEnabled: true
        onClicked: button.clicked()
    }
}
