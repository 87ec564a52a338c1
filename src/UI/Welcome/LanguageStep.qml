import QtQuick
import Quillo

LanguageList {
    readonly property Item initialFocus: this

    // The highlighted language is the choice when the user continues, even without a click.
    function leave() { welcome.chooseLanguage(highlighted()) }

    onClicked: code => welcome.chooseLanguage(code)
    onAccepted: {
        leave()
        welcome.next()
    }
    onDismissed: dialog.dismiss()
}
