import QtQuick
import Quillo

// What to do from here on.
Column {
    readonly property Item initialFocus: null
    spacing: Math.round(20 * Theme.unit)

    Item { width: 1; height: Math.round(4 * Theme.unit) }
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
