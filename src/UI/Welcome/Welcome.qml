import QtQuick
import Quillo

// The frame around the steps: title, scrolling page, back and next buttons. `welcome` is the view model, `dialog` the
// window; the steps also use `languages`, `hotkey`, `microphone` and `account`.
FocusScope {
    id: root

    readonly property int padding: Math.round(36 * Theme.unit)
    readonly property bool low: height < Math.round(430 * Theme.unit)
    readonly property var titles: ({
        language: [Texts.t("languagePicker.title"), Texts.t("languagePicker.subtitle")],
        hotkey: hotkey.name !== "" ? [Texts.t("welcome.hotkey.title"), Texts.t("welcome.hotkey.subtitle")]
                                   : [Texts.t("welcome.hotkey.bindTitle"), Texts.t("welcome.hotkey.bindSubtitle")],
        microphone: [Texts.t("welcome.microphone.title"), Texts.t("welcome.microphone.subtitle")],
        account: [Texts.t(account.signedIn ? "account.signedIn" : "welcome.account.title"), Texts.t("welcome.account.subtitle")],
        ready: [Texts.t("welcome.ready.title"), Texts.t("welcome.ready.subtitle")]
    })
    readonly property var pages: ({
        language: "LanguageStep.qml", hotkey: "HotkeyStep.qml", microphone: "MicrophoneStep.qml",
        account: "AccountStep.qml", ready: "ReadyStep.qml"
    })

    implicitWidth: Math.round(660 * Theme.unit)
    implicitHeight: Math.round(560 * Theme.unit)
    LayoutMirroring.enabled: Qt.application.layoutDirection === Qt.RightToLeft
    LayoutMirroring.childrenInherit: true

    function next() {
        if (!forward.visible)
            return
        if (stepLoader.item.leave && !stepLoader.item.leave())
            return
        welcome.next()
    }
    function placeFocus() {
        const first = stepLoader.item ? stepLoader.item.initialFocus : null
        const target = first ? first : forward.visible ? forward : backward
        target.forceActiveFocus()
    }

    Keys.onReturnPressed: next()
    Keys.onEnterPressed: next()
    Keys.onEscapePressed: {
        if (welcome.step === "account" && account.phase === "waiting")
            account.cancel()
        else
            dialog.dismiss()
    }
    Keys.onPressed: event => {
        if (event.key === Qt.Key_Left && event.modifiers & Qt.AltModifier) {
            welcome.back()
            event.accepted = true
        } else if (event.key === Qt.Key_PageUp || event.key === Qt.Key_PageDown) {
            page.scroll(event.key === Qt.Key_PageUp ? -1 : 1)
            event.accepted = true
        }
    }

    Rectangle {
        anchors.fill: parent
        color: Theme.surface
    }

    ScrollPage {
        id: page
        anchors { left: parent.left; right: parent.right; top: parent.top; bottom: footer.top }
        contentHeight: stepLoader.y + stepLoader.height

        Words {
            id: greeting
            x: root.padding
            y: Math.round((root.low ? 12 : 26) * Theme.unit)
            width: page.width - 2 * root.padding
            visible: welcome.first
            color: Theme.accent
            font.weight: Font.DemiBold
            text: Texts.t("welcome.title")
        }
        Words {
            id: title
            x: root.padding
            y: greeting.visible ? greeting.y + greeting.height + Math.round(6 * Theme.unit)
                                : Math.round((root.low ? 14 : 30) * Theme.unit)
            width: page.width - 2 * root.padding
            tone: "title"
            text: root.titles[welcome.step][0]
        }
        Words {
            id: subtitle
            anchors { left: title.left; right: title.right; top: title.bottom; topMargin: Math.round(6 * Theme.unit) }
            tone: "quiet"
            text: root.titles[welcome.step][1]
        }
        Loader {
            id: stepLoader
            anchors { left: title.left; right: title.right; top: subtitle.bottom; topMargin: Math.round((root.low ? 12 : 20) * Theme.unit) }
            height: Math.max(item ? item.implicitHeight + Math.round(12 * Theme.unit) : 0, page.height - y)
            source: root.pages[welcome.step]
            onLoaded: {
                page.contentY = 0
                Qt.callLater(root.placeFocus)
            }
        }
    }

    Item {
        id: footer
        anchors { left: parent.left; right: parent.right; bottom: parent.bottom }
        height: forward.height + Math.round((root.low ? 16 : 32) * Theme.unit)

        Rectangle {
            anchors { left: parent.left; right: parent.right; top: parent.top }
            height: 1
            color: Theme.outline
        }
        PushButton {
            id: backward
            anchors { left: parent.left; leftMargin: root.padding; verticalCenter: parent.verticalCenter }
            text: Texts.t("welcome.back")
            visible: !welcome.first
            onClicked: welcome.back()
        }
        Row {
            anchors.centerIn: parent
            spacing: Math.round(8 * Theme.unit)
            visible: forward.x - backward.x - backward.width > width + Math.round(24 * Theme.unit)
            Accessible.role: Accessible.StaticText
            Accessible.name: Texts.t("welcome.progress").arg(welcome.index + 1).arg(welcome.count)
            Repeater {
                model: welcome.count
                Rectangle {
                    required property int index
                    width: Math.round((index === welcome.index ? 18 : 7) * Theme.unit)
                    height: Math.round(7 * Theme.unit)
                    radius: height / 2
                    color: index === welcome.index ? Theme.accent : Theme.outline
                    antialiasing: true
                }
            }
        }
        PushButton {
            id: forward
            anchors { right: parent.right; rightMargin: root.padding; verticalCenter: parent.verticalCenter }
            kind: "primary"
            text: Texts.t(welcome.last ? "welcome.finish" : "welcome.next")
            // The user decides whether to have an account, unless no choice is possible now.
            visible: welcome.step !== "account" || account.phase === "signedIn" || account.phase === "busy"
            onClicked: root.next()
        }
    }

    Connections {
        target: account
        function onChanged() {
            if (welcome.step === "account")
                Qt.callLater(root.placeFocus)
        }
    }
    onActiveFocusChanged: if (activeFocus && !stepLoader.activeFocus && !footer.activeFocus) Qt.callLater(placeFocus)
}
