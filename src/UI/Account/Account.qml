import QtQuick
import Quillo

// The account window. `account` is the model, `dialog` the window.
FocusScope {
    id: root

    property bool deleting: false
    readonly property bool confirming: deleting && account.phase === "signedIn"
    readonly property int padding: Math.round(28 * Theme.unit)

    implicitWidth: Math.round(480 * Theme.unit)
    implicitHeight: Math.round(430 * Theme.unit)
    LayoutMirroring.enabled: Qt.application.layoutDirection === Qt.RightToLeft
    LayoutMirroring.childrenInherit: true

    function placeFocus() {
        const first = confirming ? keep : choices.initialFocus ? choices.initialFocus : close
        first.forceActiveFocus()
    }
    onConfirmingChanged: Qt.callLater(placeFocus)

    Keys.onPressed: event => {
        if (event.key === Qt.Key_PageUp || event.key === Qt.Key_PageDown) {
            page.scroll(event.key === Qt.Key_PageUp ? -1 : 1)
            event.accepted = true
        }
    }
    Keys.onEscapePressed: {
        if (confirming)
            deleting = false
        else if (account.phase === "waiting")
            account.cancel()
        else
            dialog.dismiss()
    }

    Rectangle {
        anchors.fill: parent
        color: Theme.surface
    }

    ScrollPage {
        id: page
        anchors { left: parent.left; right: parent.right; top: parent.top; bottom: footer.top }
        contentHeight: (root.confirming ? warning : overview).height + Math.round(44 * Theme.unit)

        Column {
            id: overview
            x: root.padding
            y: Math.round(26 * Theme.unit)
            width: page.width - 2 * root.padding
            spacing: Math.round(14 * Theme.unit)
            visible: !root.confirming

            Words {
                width: parent.width
                tone: "title"
                text: choices.open ? account.title : Texts.t("account.title")
            }
            AccountChoices {
                id: choices
                width: parent.width
            }
            Words {
                width: parent.width
                visible: choices.open
                tone: "quiet"
                text: Texts.t("account.browser")
            }
        }
        Column {
            id: warning
            x: root.padding
            y: Math.round(26 * Theme.unit)
            width: page.width - 2 * root.padding
            spacing: Math.round(14 * Theme.unit)
            visible: root.confirming

            Words {
                width: parent.width
                tone: "title"
                text: Texts.t("account.deleteTitle")
            }
            Words {
                width: parent.width
                font.weight: Font.DemiBold
                text: account.title
            }
            Row {
                width: parent.width
                spacing: Math.round(12 * Theme.unit)
                Badge { id: goes; glyph: "cross"; tint: Theme.failure }
                Words { width: parent.width - goes.width - parent.spacing; text: Texts.t("account.deleteGoes") }
            }
            Row {
                width: parent.width
                spacing: Math.round(12 * Theme.unit)
                Badge { id: stays; glyph: "check"; tint: Theme.success }
                Words { width: parent.width - stays.width - parent.spacing; text: Texts.t("account.deleteStays") }
            }
        }
    }

    Item {
        id: footer
        anchors { left: parent.left; right: parent.right; bottom: parent.bottom }
        height: buttons.height + Math.round(32 * Theme.unit)

        Rectangle {
            anchors { left: parent.left; right: parent.right; top: parent.top }
            height: 1
            color: Theme.outline
        }
        Flow {
            id: buttons
            anchors {
                left: parent.left; right: parent.right; verticalCenter: parent.verticalCenter
                leftMargin: root.padding; rightMargin: root.padding
            }
            spacing: Math.round(10 * Theme.unit)
            layoutDirection: Qt.RightToLeft

            PushButton {
                id: close
                visible: !root.confirming
                kind: "primary"
                text: Texts.t("account.close")
                onClicked: dialog.dismiss()
            }
            PushButton {
                visible: (account.phase === "signedIn" || account.phase === "expired") && !root.confirming
                text: Texts.t("account.signOut")
                onClicked: account.signOut()
            }
            PushButton {
                visible: account.phase === "signedIn" && !root.confirming
                text: Texts.t("account.delete")
                onClicked: root.deleting = true
            }
            PushButton {
                id: keep
                visible: root.confirming
                text: Texts.t("account.keep")
                onClicked: root.deleting = false
            }
            PushButton {
                visible: root.confirming
                kind: "danger"
                text: Texts.t("account.deleteConfirm")
                onClicked: {
                    root.deleting = false
                    account.deleteAccount()
                }
            }
        }
    }

    Connections {
        target: account
        function onChanged() {
            if (account.phase !== "signedIn")
                root.deleting = false
            Qt.callLater(root.placeFocus)
        }
    }
    onActiveFocusChanged: if (activeFocus && !page.activeFocus && !footer.activeFocus) Qt.callLater(placeFocus)
}
