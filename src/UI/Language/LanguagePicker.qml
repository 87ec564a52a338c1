import QtQuick
import Quillo

// Asks for the dictation language. `languages` is the model, `picker` the window.
FocusScope {
    id: root

    readonly property int padding: Math.round(20 * Theme.unit)

    implicitWidth: Math.round(440 * Theme.unit)
    implicitHeight: Math.round(540 * Theme.unit)
    LayoutMirroring.enabled: Qt.application.layoutDirection === Qt.RightToLeft
    LayoutMirroring.childrenInherit: true

    Rectangle {
        anchors.fill: parent
        color: Theme.surface
    }

    Text {
        id: title
        anchors { left: parent.left; right: parent.right; top: parent.top; margins: root.padding }
        text: Texts.t("languagePicker.title")
        textFormat: Text.PlainText
        wrapMode: Text.Wrap
        color: Theme.text
        font.pixelSize: Math.round(Theme.fontSize * 1.35)
        font.weight: Font.DemiBold
    }
    Text {
        id: explanation
        anchors { left: title.left; right: title.right; top: title.bottom; topMargin: Math.round(4 * Theme.unit) }
        text: Texts.t("languagePicker.subtitle")
        textFormat: Text.PlainText
        wrapMode: Text.Wrap
        color: Theme.secondaryText
        font.pixelSize: Theme.fontSize
    }

    LanguageList {
        focus: true
        anchors {
            left: parent.left; right: parent.right; top: explanation.bottom; bottom: parent.bottom
            topMargin: Math.round(14 * Theme.unit); bottomMargin: Math.round(10 * Theme.unit)
        }
        margin: root.padding
        onAccepted: code => picker.choose(code)
        onClicked: code => picker.choose(code)
        onDismissed: picker.dismiss()
    }
}
