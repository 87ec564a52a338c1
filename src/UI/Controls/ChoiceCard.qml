import QtQuick
import Quillo

// One of several choices with an explanation. Its height follows its text.
Rectangle {
    id: card

    property string glyph
    property string title
    property string detail
    signal clicked()

    implicitHeight: Math.max(badge.height, words.height) + Math.round(24 * Theme.unit)
    radius: Math.round(12 * Theme.unit)
    color: area.pressed ? Theme.outline : area.containsMouse ? Theme.dark ? Qt.lighter(Theme.raised, 1.15) : Qt.darker(Theme.raised, 1.03) : Theme.raised
    border.width: 1
    border.color: Theme.outline
    antialiasing: true

    activeFocusOnTab: true
    Keys.onReturnPressed: clicked()
    Keys.onEnterPressed: clicked()
    Keys.onSpacePressed: clicked()
    Accessible.role: Accessible.Button
    Accessible.name: title
    Accessible.description: detail
    Accessible.focusable: true
    Accessible.onPressAction: clicked()

    Badge {
        id: badge
        anchors { left: parent.left; leftMargin: Math.round(14 * Theme.unit); verticalCenter: parent.verticalCenter }
        glyph: card.glyph
    }
    Column {
        id: words
        anchors {
            left: badge.right; right: parent.right; verticalCenter: parent.verticalCenter
            leftMargin: Math.round(14 * Theme.unit); rightMargin: Math.round(14 * Theme.unit)
        }
        spacing: Math.round(2 * Theme.unit)
        Text {
            width: parent.width
            text: card.title
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            color: Theme.text
            font.pixelSize: Theme.fontSize
            font.weight: Font.DemiBold
            Accessible.ignored: true
        }
        Text {
            width: parent.width
            visible: text !== ""
            text: card.detail
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            color: Theme.secondaryText
            font.pixelSize: Theme.fontSize
            Accessible.ignored: true
        }
    }
    FocusRing {}
    MouseArea {
        id: area
        anchors.fill: parent
        hoverEnabled: true
        onClicked: card.clicked()
    }
}
