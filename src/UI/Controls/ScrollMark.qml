import QtQuick
import Quillo

// Shows how far its parent Flickable has been scrolled; hidden while everything fits.
Rectangle {
    required property Flickable flickable

    parent: flickable
    anchors.right: parent.right
    anchors.rightMargin: -Math.round(8 * Theme.unit)
    y: flickable.visibleArea.yPosition * flickable.height
    width: Math.round(4 * Theme.unit)
    height: Math.max(Math.round(24 * Theme.unit), flickable.visibleArea.heightRatio * flickable.height)
    radius: width / 2
    color: Theme.outline
    visible: flickable.visibleArea.heightRatio < 1
}
