import QtQuick
import Quillo

// The signed-in user, or the ways to sign in. Used by the welcome and by the account window. `account` is the model.
Column {
    id: choices

    property bool goesWithout: false
    readonly property bool open: ["none", "anonymous", "expired"].includes(account.phase)
    readonly property Item initialFocus: open ? signIn : cancel.visible ? cancel : null
    signal without()

    spacing: Math.round(12 * Theme.unit)

    Rectangle {
        width: parent.width
        height: failure.height + Math.round(24 * Theme.unit)
        radius: Math.round(12 * Theme.unit)
        visible: account.message !== "" && account.phase !== "waiting"
        color: Qt.rgba(Theme.failure.r, Theme.failure.g, Theme.failure.b, Theme.dark ? 0.14 : 0.08)
        antialiasing: true
        Words {
            id: failure
            anchors.centerIn: parent
            width: parent.width - Math.round(32 * Theme.unit)
            tone: "failure"
            text: account.message
        }
    }

    ChoiceCard {
        id: signIn
        width: parent.width
        visible: choices.open
        glyph: "person"
        title: Texts.t("account.signIn")
        detail: Texts.t("account.signInDetail")
        onClicked: account.signIn()
    }
    ChoiceCard {
        width: parent.width
        visible: choices.open
        glyph: "plus"
        title: Texts.t("account.register")
        detail: Texts.t("account.registerDetail")
        onClicked: account.registerAccount()
    }
    ChoiceCard {
        width: parent.width
        visible: choices.open && choices.goesWithout
        glyph: "forward"
        title: Texts.t("welcome.account.without")
        detail: Texts.t("welcome.account.withoutDetail")
        onClicked: choices.without()
    }

    Rectangle {
        width: parent.width
        height: identity.height + Math.round(40 * Theme.unit)
        radius: Math.round(12 * Theme.unit)
        visible: !choices.open
        color: Theme.raised
        border.width: 1
        border.color: Theme.outline
        antialiasing: true

        Column {
            id: identity
            anchors.centerIn: parent
            width: parent.width - Math.round(40 * Theme.unit)
            spacing: Math.round(10 * Theme.unit)

            Badge {
                anchors.horizontalCenter: parent.horizontalCenter
                width: Math.round(56 * Theme.unit)
                glyph: account.phase === "waiting" ? "forward" : "person"
                letter: account.phase === "waiting" ? "" : account.initial
                height: width
            }
            Words {
                width: parent.width
                horizontalAlignment: Text.AlignHCenter
                maximumLineCount: 3
                elide: Text.ElideRight
                font.pixelSize: Math.round(Theme.fontSize * 1.2)
                font.weight: Font.DemiBold
                text: account.phase === "waiting" ? Texts.t("account.waiting")
                    : account.phase === "busy" ? Texts.t("account.busy") : account.title
            }
            Words {
                width: parent.width
                horizontalAlignment: Text.AlignHCenter
                visible: text !== ""
                maximumLineCount: 3
                elide: Text.ElideRight
                tone: "quiet"
                text: account.phase === "waiting" ? Texts.t("account.waitingDetail")
                    : account.phase === "busy" ? "" : account.detail !== "" ? account.detail
                    : account.title === Texts.t("account.signedIn") ? "" : Texts.t("account.signedIn")
            }
            PushButton {
                id: cancel
                anchors.horizontalCenter: parent.horizontalCenter
                visible: account.phase === "waiting"
                text: Texts.t("account.cancel")
                onClicked: account.cancel()
            }
        }
    }
}
