import QtQuick
import Quillo

LanguageList {
    readonly property Item initialFocus: this

    // The highlighted language is the choice when the user continues, even without a click.
    // False while the user has to confirm a language that the server does not understand.
    function leave() {
        if (!mayChoose(highlighted()))
            return false
        welcome.chooseLanguage(highlighted())
        return true
    }

    onClicked: code => welcome.chooseLanguage(code)
    onAccepted: {
        if (leave())
            welcome.next()
    }
    onDismissed: dialog.dismiss()
}
