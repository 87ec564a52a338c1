import QtQuick
import Quillo

// The last step: how to use Quillo from now on.
Item {
    readonly property Item initialFocus: null
    implicitHeight: advice.implicitHeight

    Column {
        id: advice
        y: Math.max(0, Math.round((parent.height - height) * 0.35))
        width: parent.width
        spacing: Math.round(20 * Theme.unit)

        KeyCap {
            anchors.horizontalCenter: parent.horizontalCenter
            label: hotkey.name !== "" ? hotkey.name : "quillo toggle"
        }
        Words {
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            font.pixelSize: Math.round(Theme.fontSize * 1.12)
            font.weight: Font.DemiBold
            text: hotkey.name !== "" ? Texts.t("welcome.ready.hold").arg(hotkey.name)
                                     : Texts.t("welcome.ready.bound").arg("quillo toggle")
        }
        Words {
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            tone: "quiet"
            text: Texts.t("welcome.ready.tray")
        }
        SwitchRow {
            width: parent.width
            visible: welcome.launchAtLoginOffered
            text: Texts.t("welcome.ready.launchAtLogin")
            checked: welcome.launchAtLogin
            onToggled: wanted => welcome.launchAtLogin = wanted
        }
    }
}
