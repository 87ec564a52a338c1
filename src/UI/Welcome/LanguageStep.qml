import QtQuick
import Quillo

LanguageList {
    readonly property Item initialFocus: this

    // What is highlighted when the user goes on is the choice, clicked or not.
    function leave() { welcome.chooseLanguage(highlighted()) }

    onClicked: code => welcome.chooseLanguage(code)
    onAccepted: {
        leave()
        welcome.next()
    }
    onDismissed: dialog.dismiss()
}
