import QtQuick
import Quillo

// Scrolls what is higher than the window, and brings what gets the keyboard focus into sight.
Flickable {
    id: page

    readonly property Item focused: Window.activeFocusItem
    readonly property int margin: Math.round(12 * Theme.unit)

    contentWidth: width
    clip: true
    boundsBehavior: Flickable.StopAtBounds
    interactive: contentHeight > height

    onFocusedChanged: {
        for (let ancestor = focused; ancestor; ancestor = ancestor.parent) {
            if (ancestor !== contentItem)
                continue
            const top = focused.mapToItem(contentItem, 0, 0).y
            const lowest = Math.max(0, contentHeight - height)
            if (top - margin < contentY)
                contentY = Math.max(0, top - margin)
            else if (top + focused.height + margin > contentY + height)
                contentY = Math.min(lowest, top + focused.height + margin - height)
        }
    }

    ScrollMark {
        flickable: page
        anchors.rightMargin: Math.round(4 * Theme.unit)
    }
}
