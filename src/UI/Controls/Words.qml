import QtQuick
import Quillo

// A paragraph that fills the available width. `tone` is "title", "plain", "quiet", "failure" or "notice".
Text {
    property string tone: "plain"

    textFormat: Text.PlainText
    wrapMode: Text.Wrap
    color: ({ quiet: Theme.secondaryText, failure: Theme.failure, notice: Theme.offline })[tone] || Theme.text
    font.pixelSize: tone === "title" ? Math.round(Theme.fontSize * 1.6) : Theme.fontSize
    font.weight: tone === "title" ? Font.DemiBold : Font.Normal
    lineHeight: tone === "title" ? 1 : 1.12
    Accessible.role: tone === "failure" || tone === "notice" ? Accessible.AlertMessage
        : tone === "title" ? Accessible.Heading : Accessible.StaticText
    Accessible.name: text
}
