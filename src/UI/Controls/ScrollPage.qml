import QtQuick
import Quillo

// Scrolls content that is taller than the window, and keeps the item with the keyboard focus visible.
Flickable {
    id: page

    readonly property Item focused: Window.activeFocusItem
    readonly property int margin: Math.round(12 * Theme.unit)

    contentWidth: width
    clip: true
    boundsBehavior: Flickable.StopAtBounds
    interactive: contentHeight > height

    onFocusedChanged: reveal()
    // The focused item may have been laid out only now.
    onContentHeightChanged: Qt.callLater(reveal)
    onHeightChanged: Qt.callLater(reveal)

    // Scrolls by most of a page, for Page Up (-1) and Page Down (1).
    function scroll(direction) {
        contentY = Math.max(0, Math.min(contentHeight - height, contentY + direction * height * 0.8))
    }
    function reveal() {
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
