import QtQuick
import Quillo

// Chooses the microphone and shows whether it picks up speech.
Column {
    id: step

    readonly property Item initialFocus: null
    readonly property bool failed: microphone.phase === "failed"
    readonly property bool heard: microphone.phase === "heard"
    // Keep the level visible, even in a low window.
    readonly property bool low: Window.height < 430 * Theme.unit
    spacing: Math.round((low ? 8 : 16) * Theme.unit)

    Rectangle {
        width: parent.width
        height: list.height + Math.round(12 * Theme.unit)
        radius: Math.round(12 * Theme.unit)
        color: Theme.raised
        border.width: 1
        border.color: Theme.outline
        antialiasing: true
        FocusRing { visible: list.activeFocus }

        ListView {
            id: list
            readonly property int rowHeight: Math.round(36 * Theme.unit)
            x: Math.round(6 * Theme.unit)
            y: x
            width: parent.width - 2 * x
            height: Math.min(count, step.low ? 2.5 : 4.5) * rowHeight
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            interactive: contentHeight > height
            model: microphone.choices
            currentIndex: microphone.current
            highlightMoveDuration: 0
            activeFocusOnTab: true
            Keys.onUpPressed: microphone.select(microphone.current - 1)
            Keys.onDownPressed: microphone.select(microphone.current + 1)
            Accessible.role: Accessible.List
            Accessible.name: Texts.t("tray.microphone")
            Accessible.focusable: true

            delegate: Item {
                id: row
                required property int index
                required property string modelData
                readonly property bool chosen: index === microphone.current
                width: list.width
                height: list.rowHeight
                Accessible.role: Accessible.RadioButton
                Accessible.name: modelData
                Accessible.focusable: true
                Accessible.checkable: true
                Accessible.checked: chosen
                Accessible.onPressAction: microphone.select(index)

                Rectangle {
                    anchors.fill: parent
                    radius: Math.round(8 * Theme.unit)
                    color: Theme.outline
                    opacity: 0.5
                    visible: area.containsMouse
                    antialiasing: true
                }
                Rectangle {
                    id: dot
                    anchors { left: parent.left; leftMargin: Math.round(10 * Theme.unit); verticalCenter: parent.verticalCenter }
                    width: Math.round(18 * Theme.unit)
                    height: width
                    radius: width / 2
                    color: "transparent"
                    border.width: Math.max(1, Math.round((row.chosen ? 5.5 : 1.5) * Theme.unit))
                    border.color: row.chosen ? Theme.accent : Theme.secondaryText
                    antialiasing: true
                }
                Text {
                    anchors {
                        left: dot.right; right: parent.right; verticalCenter: parent.verticalCenter
                        leftMargin: Math.round(10 * Theme.unit); rightMargin: Math.round(10 * Theme.unit)
                    }
                    elide: Text.ElideRight
                    text: row.modelData
                    textFormat: Text.PlainText
                    color: Theme.text
                    font.pixelSize: Theme.fontSize
                    Accessible.ignored: true
                }
                MouseArea {
                    id: area
                    anchors.fill: parent
                    hoverEnabled: true
                    onClicked: microphone.select(row.index)
                }
            }
            ScrollMark {
                flickable: list
                anchors.rightMargin: 0
            }
        }
    }

    Waveform {
        anchors.horizontalCenter: parent.horizontalCenter
        width: Math.min(parent.width, Math.round(300 * Theme.unit))
        height: Math.round((step.low ? 32 : 64) * Theme.unit)
        visible: !step.failed
        color: step.heard ? Theme.success : Theme.accent
        level: microphone.level
        mode: "live"
        running: microphone.phase === "listening" || step.heard
        Accessible.role: Accessible.Graphic
        Accessible.name: Texts.t("welcome.microphone.level")
    }
    Row {
        id: verdict
        anchors.horizontalCenter: parent.horizontalCenter
        spacing: Math.round(8 * Theme.unit)
        visible: !step.failed && (step.heard || !microphone.overdue)
        Glyph {
            anchors.verticalCenter: parent.verticalCenter
            width: Math.round(20 * Theme.unit)
            height: width
            visible: step.heard
            name: "check"
            color: Theme.success
        }
        Words {
            anchors.verticalCenter: parent.verticalCenter
            font.pixelSize: Math.round(Theme.fontSize * 1.12)
            font.weight: Font.DemiBold
            text: Texts.t(step.heard ? "welcome.microphone.heard" : "welcome.microphone.listening")
        }
    }
    Words {
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        visible: !step.failed && !verdict.visible
        tone: "notice"
        text: Texts.t("welcome.microphone.quiet")
    }

    Row {
        width: parent.width
        spacing: Math.round(14 * Theme.unit)
        visible: step.failed
        Badge {
            id: mark
            glyph: "exclamation"
            tint: Theme.failure
        }
        Column {
            width: parent.width - mark.width - parent.spacing
            spacing: Math.round(6 * Theme.unit)
            Words {
                width: parent.width
                font.weight: Font.DemiBold
                text: Texts.t("welcome.microphone.failed")
            }
            Words {
                width: parent.width
                visible: text !== ""
                tone: "failure"
                text: microphone.reason
            }
            Words {
                width: parent.width
                tone: "quiet"
                text: Texts.t("welcome.microphone.failedHint")
            }
            Item { width: 1; height: Math.round(4 * Theme.unit) }
            PushButton {
                text: Texts.t("welcome.microphone.retry")
                onClicked: microphone.begin()
            }
        }
    }
}
