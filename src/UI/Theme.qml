pragma Singleton
import QtQuick

// Colours, sizes and durations of every screen. Follows the desktop's palette and its font.
QtObject {
    readonly property SystemPalette palette: SystemPalette {}
    readonly property bool dark: palette.window.hslLightness < 0.5

    readonly property color surface: dark ? "#1d1e23" : "#fcfcfd"
    readonly property color raised: dark ? "#2b2d34" : "#eff0f3"
    readonly property color outline: dark ? "#3d3f48" : "#d3d5dc"
    readonly property color text: dark ? "#f3f4f6" : "#1b1c20"
    readonly property color secondaryText: dark ? "#a9adb8" : "#5b5f6b"

    readonly property color accent: dark ? "#b7a2ff" : "#6445d6"
    readonly property color recording: dark ? "#ff6b6e" : "#cf2f3c"
    readonly property color connecting: dark ? "#7db4ff" : "#2460d8"
    readonly property color offline: dark ? "#f4bd50" : "#a15c05"
    readonly property color success: dark ? "#58d3a5" : "#0b7a55"
    readonly property color failure: dark ? "#ff7f7f" : "#c22b35"

    readonly property int fontSize: Math.max(12, fontInfo.pixelSize)
    readonly property int smallFontSize: Math.max(11, Math.round(fontSize * 0.88))
    readonly property real unit: fontSize / 13

    readonly property int fadeDuration: 160
    readonly property int resizeDuration: 180

    readonly property FontMetrics fontInfo: FontMetrics {
        font: Qt.application.font
        readonly property int pixelSize: Qt.application.font.pixelSize > 0
            ? Qt.application.font.pixelSize
            : Math.round(Qt.application.font.pointSize * 96 / 72)
    }
}
