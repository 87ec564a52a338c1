import QtQuick
import Quillo

// The floating pill. `pill` is the view model, `pillWindow` the window that contains it.
Item {
    id: root

    readonly property string phase: pill.phase
    readonly property bool live: pill.active
    readonly property bool working: phase === "processing" || phase === "command"
    readonly property bool message: !live && !working
    readonly property int maximumWidth: Math.round(440 * Theme.unit)
    readonly property int maximumHeight: Math.round(98 * Theme.unit)
    readonly property int singleHeight: Math.round(42 * Theme.unit)
    readonly property int padding: Math.round(14 * Theme.unit)
    readonly property int gap: Math.round(11 * Theme.unit)
    readonly property color tint: ({
        connecting: Theme.connecting, recording: Theme.recording, recordingOffline: Theme.offline,
        processing: Theme.accent, command: Theme.accent, hint: Theme.success,
        cancelled: Theme.secondaryText, error: Theme.failure, hovering: Theme.accent
    })[phase] || Theme.accent

    Accessible.role: Accessible.StatusBar
    Accessible.name: pill.text

    Shadow {
        x: capsule.x - extent
        y: capsule.y - extent + 3
        width: capsule.width + 2 * extent
        height: capsule.height + 2 * extent
        extent: 18
        radius: capsule.radius
        strength: Theme.dark ? 0.42 : 0.20
        visible: pillWindow.composited
        opacity: capsule.opacity
    }

    Rectangle {
        id: capsule

        readonly property real wanted: root.padding * 2 + leading.width + root.gap + body.implicitWidth
            + (trailing.width > 0 ? root.gap + trailing.width : 0)

        anchors.horizontalCenter: parent.horizontalCenter
        y: parent.height - pillWindow.margin - height
        // Keep the width while the user speaks: a pill that resizes with every word distracts.
        width: root.live ? root.maximumWidth : Math.min(root.maximumWidth, Math.ceil(wanted))
        height: body.lineCount > 1
            ? Math.min(root.maximumHeight, Math.ceil(body.implicitHeight) + Math.round(24 * Theme.unit))
            : root.singleHeight
        radius: Math.min(height / 2, root.singleHeight / 2)
        color: Theme.surface
        border.width: 1
        border.color: Theme.outline
        antialiasing: true
        opacity: pillWindow.shown || !pillWindow.composited ? 1 : 0

        Behavior on opacity { NumberAnimation { duration: Theme.fadeDuration } }
        // Animate a transform, not the position: the window's shape follows the position, and an animation that waits
        // for the first frame would leave the shape outside the window.
        transform: Translate {
            y: pillWindow.shown || !pillWindow.composited ? 0 : 5
            Behavior on y { NumberAnimation { duration: Theme.fadeDuration; easing.type: Easing.OutCubic } }
        }
        Behavior on width {
            enabled: pillWindow.shown && pillWindow.composited
            NumberAnimation { duration: Theme.resizeDuration; easing.type: Easing.OutCubic }
        }

        function report() {
            pillWindow.setCapsule(Qt.rect(x, y, width, height), radius, color)
        }
        onXChanged: report()
        onYChanged: report()
        onWidthChanged: report()
        onHeightChanged: report()
        onColorChanged: report()
        Component.onCompleted: report()

        HoverHandler {
            onHoveredChanged: pill.setHovering(hovered)
        }

        MouseArea {
            anchors.fill: parent
            onPressed: mouse => pillWindow.beginDrag(mapToGlobal(mouse.x, mouse.y))
            onPositionChanged: if (pressed) pillWindow.drag()
            onReleased: {
                if (pillWindow.endDrag())
                    return
                if (root.phase === "hovering")
                    pill.start()
                else if (root.message)
                    pill.dismiss()
            }
            cursorShape: pressed ? Qt.ClosedHandCursor : Qt.ArrowCursor
        }

        Item {
            id: leading
            x: root.padding
            anchors.verticalCenter: parent.verticalCenter
            width: root.message ? mark.width : waveform.width
            height: parent.height

            Waveform {
                id: waveform
                anchors.verticalCenter: parent.verticalCenter
                width: Math.round((root.working ? 64 : 92) * Theme.unit)
                height: Math.round(24 * Theme.unit)
                visible: !root.message
                color: root.tint
                level: pill.level
                mode: root.working ? "travelling" : root.phase === "connecting" && pill.level < 0.02 ? "calm" : "live"
                running: pill.visible && !root.message
            }
            Rectangle {
                id: mark
                anchors.verticalCenter: parent.verticalCenter
                width: Math.round(22 * Theme.unit)
                height: width
                radius: width / 2
                visible: root.message
                antialiasing: true
                color: Qt.rgba(root.tint.r, root.tint.g, root.tint.b, Theme.dark ? 0.20 : 0.13)
                Glyph {
                    anchors.centerIn: parent
                    width: Math.round(15 * Theme.unit)
                    height: width
                    color: root.tint
                    name: ({ hint: "check", error: "exclamation", cancelled: "cross" })[root.phase] || "microphone"
                }
            }
        }

        Text {
            id: body
            anchors.left: leading.right
            anchors.leftMargin: root.gap
            anchors.verticalCenter: parent.verticalCenter
            width: Math.min(implicitWidth, available)
            readonly property real available: (root.live ? capsule.width : root.maximumWidth) - root.padding * 2
                - leading.width - root.gap - (trailing.width > 0 ? root.gap + trailing.width : 0)
            text: pill.text
            textFormat: Text.PlainText
            color: pill.transcript || root.message ? Theme.text : Theme.secondaryText
            font.pixelSize: Theme.fontSize
            elide: pill.transcript ? Text.ElideLeft : Text.ElideRight
            wrapMode: root.message ? Text.Wrap : Text.NoWrap
            maximumLineCount: root.message ? 4 : 1
            horizontalAlignment: Text.AlignLeft
        }

        Row {
            id: trailing
            anchors.right: parent.right
            anchors.rightMargin: root.live && pill.hovering ? Math.round(8 * Theme.unit) : root.padding
            anchors.verticalCenter: parent.verticalCenter
            spacing: Math.round(6 * Theme.unit)
            visible: root.live

            width: root.live ? implicitWidth : 0

            Glyph {
                anchors.verticalCenter: parent.verticalCenter
                width: Math.round(14 * Theme.unit)
                height: width
                name: "lock"
                color: Theme.secondaryText
                visible: pill.handsOff
            }
            Text {
                anchors.verticalCenter: parent.verticalCenter
                visible: !pill.hovering
                width: Math.max(implicitWidth, digits.advanceWidth)
                text: pill.elapsed
                textFormat: Text.PlainText
                horizontalAlignment: Text.AlignRight
                color: Theme.secondaryText
                font.pixelSize: Theme.smallFontSize
                TextMetrics {
                    id: digits
                    font.pixelSize: Theme.smallFontSize
                    text: "00:00"
                }
            }
            RoundButton {
                visible: pill.hovering
                glyph: "cross"
                label: Texts.t("tray.cancel")
                color: Theme.secondaryText
                onClicked: pill.cancel()
            }
            RoundButton {
                visible: pill.hovering
                glyph: "stop"
                label: Texts.t("tray.stopDictation")
                color: root.tint
                onClicked: pill.stop()
            }
        }
    }
}
