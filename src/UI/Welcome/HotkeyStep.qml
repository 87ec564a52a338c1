import QtQuick
import Quillo

// The trial of the hotkey or, on desktops without hotkeys, instructions for binding a key.
Item {
    id: step

    readonly property bool offered: hotkey.name !== ""
    readonly property Item initialFocus: null

    implicitHeight: offered ? trial.implicitHeight : guide.implicitHeight

    function choose(isToggle) {
        keyCatcher.forceActiveFocus()
        hotkey.choose(isToggle)
    }

    // The chosen key may reach this window too, before or after it has been taken: here it does nothing.
    Item {
        id: keyCatcher
        Keys.onPressed: event => event.accepted = hotkey.choosing || (event.key !== Qt.Key_Tab && event.key !== Qt.Key_Backtab)
        Keys.onReleased: event => {
            event.accepted = true
            if (!hotkey.choosing)
                chooseHold.forceActiveFocus()
        }
    }

    component Arrival: Row {
        property bool arrived: false
        property string text

        spacing: Math.round(8 * Theme.unit)
        Accessible.role: Accessible.StaticText
        Accessible.name: arrived ? text : text + ": " + Texts.t("welcome.hotkey.notYet")

        Rectangle {
            width: Math.round(22 * Theme.unit)
            height: width
            radius: width / 2
            color: parent.arrived ? Theme.success : "transparent"
            border.width: parent.arrived ? 0 : Math.max(1, Math.round(1.5 * Theme.unit))
            border.color: Theme.outline
            antialiasing: true
            Glyph {
                anchors.centerIn: parent
                width: Math.round(15 * Theme.unit)
                height: width
                name: "check"
                color: Theme.surface
                visible: parent.parent.arrived
            }
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: parent.text
            textFormat: Text.PlainText
            color: parent.arrived ? Theme.text : Theme.secondaryText
            font.pixelSize: Theme.fontSize
            Accessible.ignored: true
        }
    }

    Column {
        id: trial
        y: Math.max(0, Math.round((parent.height - height) * 0.35))
        width: parent.width
        spacing: Math.round((Window.height < 430 * Theme.unit ? 12 : 20) * Theme.unit)
        visible: step.offered

        KeyCap {
            anchors.horizontalCenter: parent.horizontalCenter
            label: hotkey.name
            down: hotkey.down
            proven: hotkey.released
        }
        Words {
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            font.pixelSize: Math.round(Theme.fontSize * 1.12)
            font.weight: Font.DemiBold
            text: Texts.t(hotkey.down ? "welcome.hotkey.letGo"
                : hotkey.released ? "welcome.hotkey.works" : "welcome.hotkey.hold")
        }
        Flow {
            anchors.horizontalCenter: parent.horizontalCenter
            width: Math.min(parent.width, press.implicitWidth + release.implicitWidth + spacing)
            spacing: Math.round(28 * Theme.unit)
            Arrival { id: press; arrived: hotkey.pressed; text: Texts.t("welcome.hotkey.press") }
            Arrival { id: release; arrived: hotkey.released; text: Texts.t("welcome.hotkey.release") }
        }
        Words {
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            tone: hotkey.problem !== "" || hotkey.overdue ? "notice" : "quiet"
            text: hotkey.choosing ? Texts.t("welcome.hotkey.pressKey") : hotkey.problem !== "" ? hotkey.problem
                : Texts.t(hotkey.overdue ? "welcome.hotkey.nothing" : "welcome.hotkey.doubleTap")
        }
        Words {
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            visible: text !== ""
            tone: hotkey.conflict !== "" ? "notice" : "quiet"
            text: hotkey.conflict !== "" ? hotkey.conflict
                : hotkey.toggleName !== "" ? Texts.t("welcome.hotkey.toggle").arg(hotkey.toggleName) : ""
        }
        Flow {
            anchors.horizontalCenter: parent.horizontalCenter
            width: Math.min(parent.width, chooseHold.width + spacing + chooseToggle.width
                            + (takeFree.visible ? takeFree.width + spacing : 0))
            spacing: Math.round(12 * Theme.unit)
            visible: hotkey.choosable
            PushButton {
                id: takeFree
                text: hotkey.offer
                kind: "primary"
                visible: text !== ""
                onClicked: hotkey.takeOffer()
            }
            PushButton { id: chooseHold; text: Texts.t("welcome.hotkey.chooseHold"); onClicked: step.choose(false) }
            PushButton { id: chooseToggle; text: Texts.t("welcome.hotkey.chooseToggle"); onClicked: step.choose(true) }
        }
    }

    Rectangle {
        id: guide
        width: parent.width
        implicitHeight: steps.implicitHeight + Math.round(28 * Theme.unit)
        height: implicitHeight
        visible: !step.offered
        radius: Math.round(12 * Theme.unit)
        color: Theme.raised
        border.width: 1
        border.color: steps.activeFocus ? Theme.accent : Theme.outline
        antialiasing: true

        TextEdit {
            id: steps
            anchors.centerIn: parent
            width: parent.width - Math.round(32 * Theme.unit)
            readOnly: true
            selectByMouse: true
            activeFocusOnTab: true
            textFormat: TextEdit.PlainText
            wrapMode: TextEdit.Wrap
            text: hotkey.steps
            color: Theme.text
            selectionColor: Theme.accent
            selectedTextColor: Theme.surface
            font.pixelSize: Theme.smallFontSize
            font.family: "monospace"
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
    }
}
