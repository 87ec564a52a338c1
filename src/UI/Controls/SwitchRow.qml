import QtQuick
import Quillo

// A setting that is on or off. Shows `checked` and requests a change with `toggled`; the handler of the signal makes
// the change.
Rectangle {
    id: row

    property string text
    property bool checked: false
    signal toggled(bool wanted)

    implicitHeight: Math.max(track.height, label.implicitHeight) + Math.round(22 * Theme.unit)
    radius: Math.round(12 * Theme.unit)
    color: Theme.raised
    border.width: 1
    border.color: Theme.outline
    antialiasing: true

    activeFocusOnTab: true
    Keys.onSpacePressed: toggled(!checked)
    Accessible.role: Accessible.CheckBox
    Accessible.name: text
    Accessible.checkable: true
    Accessible.checked: checked
    Accessible.focusable: true
    Accessible.onToggleAction: toggled(!checked)
    Accessible.onPressAction: toggled(!checked)

    Text {
        id: label
        anchors {
            left: parent.left; right: track.left; verticalCenter: parent.verticalCenter
            leftMargin: Math.round(16 * Theme.unit); rightMargin: Math.round(12 * Theme.unit)
        }
        text: row.text
        textFormat: Text.PlainText
        wrapMode: Text.Wrap
        color: Theme.text
        font.pixelSize: Theme.fontSize
        Accessible.ignored: true
    }
    Rectangle {
        id: track
        anchors { right: parent.right; rightMargin: Math.round(16 * Theme.unit); verticalCenter: parent.verticalCenter }
        width: Math.round(40 * Theme.unit)
        height: Math.round(22 * Theme.unit)
        radius: height / 2
        color: row.checked ? Theme.accent : "transparent"
        border.width: row.checked ? 0 : Math.max(1, Math.round(1.5 * Theme.unit))
        border.color: Theme.secondaryText
        antialiasing: true
        Rectangle {
            readonly property int gap: Math.round(4 * Theme.unit)
            anchors.verticalCenter: parent.verticalCenter
            x: row.checked !== row.LayoutMirroring.enabled ? parent.width - width - gap : gap
            width: parent.height - 2 * gap
            height: width
            radius: width / 2
            color: row.checked ? Theme.surface : Theme.secondaryText
            antialiasing: true
        }
    }
    FocusRing {}
    MouseArea {
        anchors.fill: parent
        onClicked: row.toggled(!row.checked)
    }
}
