import QtQuick
import Quillo

// Search field over the dictation languages. `languages` is the model. The highlighted language is the one that Return
// accepts.
FocusScope {
    id: root

    property int margin: 0
    signal accepted(string code)
    signal clicked(string code)
    signal dismissed()

    implicitHeight: field.height + Math.round(170 * Theme.unit) + (notice.visible ? notice.height : 0)

    // A language that the server does not understand has to be chosen twice: `asked` once, `confirmed` twice.
    property string asked: ""
    property string confirmed: ""

    function highlighted() { return languages.codeAt(list.currentIndex) }
    function mayChoose(code) {
        if (languages.isServed(code) || code === confirmed)
            return true
        if (code === asked)
            confirmed = code
        asked = code === confirmed ? "" : code
        return code === confirmed
    }
    function accept() {
        const code = highlighted()
        if (mayChoose(code))
            accepted(code)
    }

    Rectangle {
        id: field
        anchors { left: parent.left; right: parent.right; top: parent.top; leftMargin: root.margin; rightMargin: root.margin }
        height: Math.round(36 * Theme.unit)
        radius: Math.round(9 * Theme.unit)
        color: Theme.raised
        border.width: search.activeFocus ? 2 : 1
        border.color: search.activeFocus ? Theme.accent : Theme.outline
        antialiasing: true

        Glyph {
            id: lens
            anchors { left: parent.left; leftMargin: Math.round(10 * Theme.unit); verticalCenter: parent.verticalCenter }
            width: Math.round(16 * Theme.unit)
            height: width
            name: "search"
            color: Theme.secondaryText
        }
        TextInput {
            id: search
            focus: true
            activeFocusOnTab: true
            anchors {
                left: lens.right; right: parent.right; verticalCenter: parent.verticalCenter
                leftMargin: Math.round(8 * Theme.unit); rightMargin: Math.round(10 * Theme.unit)
            }
            clip: true
            color: Theme.text
            selectionColor: Theme.accent
            selectedTextColor: Theme.surface
            selectByMouse: true
            font.pixelSize: Theme.fontSize
            Accessible.role: Accessible.EditableText
            Accessible.name: Texts.t("languagePicker.search")
            onTextChanged: {
                languages.filter = text
                // Update at once: a fast typist presses Return before the list has been laid out.
                list.restore()
            }
            Keys.onUpPressed: list.decrementCurrentIndex()
            Keys.onDownPressed: list.incrementCurrentIndex()
            Keys.onReturnPressed: root.accept()
            Keys.onEnterPressed: root.accept()
            Keys.onEscapePressed: text.length > 0 ? clear() : root.dismissed()
            Keys.onPressed: event => {
                if (event.key !== Qt.Key_PageUp && event.key !== Qt.Key_PageDown)
                    return
                const page = Math.max(1, Math.floor(list.height / list.rowHeight) - 1)
                const step = event.key === Qt.Key_PageUp ? -page : page
                list.currentIndex = Math.max(0, Math.min(list.count - 1, list.currentIndex + step))
                event.accepted = true
            }
            Text {
                anchors.fill: parent
                visible: search.text.length === 0 && search.preeditText.length === 0
                text: Texts.t("languagePicker.search")
                textFormat: Text.PlainText
                elide: Text.ElideRight
                color: Theme.secondaryText
                font: search.font
            }
        }
    }

    ListView {
        id: list
        readonly property int rowHeight: Math.round(38 * Theme.unit)
        anchors {
            left: parent.left; right: parent.right; top: field.bottom; bottom: notice.visible ? notice.top : parent.bottom
            leftMargin: Math.max(0, root.margin - Math.round(8 * Theme.unit))
            rightMargin: Math.max(0, root.margin - Math.round(8 * Theme.unit))
            topMargin: Math.round(10 * Theme.unit)
        }
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        model: languages
        reuseItems: true
        Accessible.role: Accessible.List
        Accessible.name: Texts.t("tray.language")
        currentIndex: languages.currentRow
        onCurrentIndexChanged: if (root.highlighted() !== root.asked) root.asked = ""
        highlightMoveDuration: 0
        onHeightChanged: if (currentIndex >= 0) positionViewAtIndex(currentIndex, ListView.Contain)
        Component.onCompleted: {
            languages.filter = ""
            restore()
        }
        function restore() {
            currentIndex = languages.currentRow
            if (currentIndex >= 0)
                positionViewAtIndex(currentIndex, ListView.Center)
        }

        delegate: Rectangle {
            id: row
            required property int index
            required property string code
            required property string nativeName
            required property string translatedName
            required property bool current
            required property bool served
            readonly property string shownName: translatedName === nativeName ? "" : translatedName
            readonly property bool selected: ListView.isCurrentItem
            width: list.width
            height: list.rowHeight
            radius: Math.round(8 * Theme.unit)
            color: selected ? Theme.accent : area.containsMouse ? Theme.raised : "transparent"
            antialiasing: true
            Accessible.role: Accessible.ListItem
            Accessible.name: translation.text === "" ? nativeName : nativeName + ", " + translation.text
            Accessible.selected: selected

            Text {
                id: own
                anchors { left: parent.left; leftMargin: Math.round(12 * Theme.unit); verticalCenter: parent.verticalCenter }
                text: row.nativeName
                textFormat: Text.PlainText
                color: row.selected ? Theme.surface : Theme.text
                font.pixelSize: Theme.fontSize
            }
            Text {
                id: translation
                anchors {
                    left: own.right; right: tick.left; verticalCenter: parent.verticalCenter
                    leftMargin: Math.round(12 * Theme.unit); rightMargin: Math.round(8 * Theme.unit)
                }
                horizontalAlignment: Text.AlignRight
                elide: Text.ElideRight
                text: row.served ? row.shownName
                                 : (row.shownName === "" ? "" : row.shownName + " – ") + Texts.t("languagePicker.notServed")
                textFormat: Text.PlainText
                color: row.selected ? Theme.surface : Theme.secondaryText
                font.pixelSize: Theme.smallFontSize
            }
            Glyph {
                id: tick
                anchors { right: parent.right; rightMargin: Math.round(10 * Theme.unit); verticalCenter: parent.verticalCenter }
                width: Math.round(16 * Theme.unit)
                height: width
                name: row.current ? "check" : ""
                color: row.selected ? Theme.surface : Theme.accent
            }
            MouseArea {
                id: area
                anchors.fill: parent
                hoverEnabled: true
                onClicked: {
                    list.currentIndex = row.index
                    if (root.mayChoose(row.code))
                        root.clicked(row.code)
                }
            }
        }

        ScrollMark { flickable: list }
    }

    Words {
        id: notice
        anchors {
            left: parent.left; right: parent.right; bottom: parent.bottom
            leftMargin: root.margin; rightMargin: root.margin
        }
        visible: text !== ""
        topPadding: Math.round(8 * Theme.unit)
        tone: root.asked === "" ? "quiet" : "notice"
        text: root.asked !== "" ? Texts.t("languagePicker.confirm").arg(languages.nameOf(root.asked))
              : languages.servedNames !== "" ? Texts.t("languagePicker.served").arg(languages.servedNames) : ""
    }
    Text {
        anchors.centerIn: list
        width: list.width - Math.round(40 * Theme.unit)
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.Wrap
        visible: list.count === 0
        text: Texts.t("languagePicker.none")
        textFormat: Text.PlainText
        color: Theme.secondaryText
        font.pixelSize: Theme.fontSize
    }
}
