#include "Platform/Linux/AtSpi/AtSpiRoles.h"

#include <QHash>

namespace quillo {

QString axRoleForAtSpi(uint32_t role, uint64_t states) {
    // Entry, text and paragraph: the states decide whether they accept text, and whether it may have several lines.
    constexpr uint32_t entry = 79;
    constexpr uint32_t text = 61;
    if (role == entry || role == text) {
        if ((states >> atspi::stateMultiLine & 1) != 0)
            return QStringLiteral("AXTextArea");
        return (states >> atspi::stateEditable & 1) != 0 || role == entry ? QStringLiteral("AXTextField")
                                                                          : QStringLiteral("AXTextArea");
    }
    static const QHash<uint32_t, QString> roles{
        {atspi::rolePasswordText, QStringLiteral("AXTextField")},
        {7, QStringLiteral("AXCheckBox")},     // check box
        {8, QStringLiteral("AXMenuItem")},     // check menu item
        {11, QStringLiteral("AXComboBox")},    // combo box
        {26, QStringLiteral("AXImage")},       // icon
        {27, QStringLiteral("AXImage")},       // image
        {29, QStringLiteral("AXStaticText")},  // label
        {31, QStringLiteral("AXList")},        // list
        {32, QStringLiteral("AXList")},        // list item
        {33, QStringLiteral("AXMenu")},        // menu
        {34, QStringLiteral("AXMenuBar")},     // menu bar
        {35, QStringLiteral("AXMenuItem")},    // menu item
        {37, QStringLiteral("AXRadioButton")}, // page tab
        {38, QStringLiteral("AXTabGroup")},    // page tab list
        {41, QStringLiteral("AXMenu")},        // popup menu
        {43, QStringLiteral("AXButton")},      // push button
        {44, QStringLiteral("AXRadioButton")}, // radio button
        {45, QStringLiteral("AXMenuItem")},    // radio menu item
        {49, QStringLiteral("AXScrollArea")},  // scroll pane
        {51, QStringLiteral("AXSlider")},      // slider
        {52, QStringLiteral("AXTextField")},   // spin button, a field with arrows
        {53, QStringLiteral("AXSplitGroup")},  // split pane
        {55, QStringLiteral("AXTable")},       // table
        {56, QStringLiteral("AXTable")},       // table cell
        {atspi::roleTerminal, QStringLiteral("AXTextArea")},
        {62, QStringLiteral("AXButton")},    // toggle button
        {63, QStringLiteral("AXToolbar")},   // tool bar
        {65, QStringLiteral("AXOutline")},   // tree
        {66, QStringLiteral("AXOutline")},   // tree table
        {76, QStringLiteral("AXComboBox")},  // autocomplete
        {77, QStringLiteral("AXTextField")}, // edit bar
        {91, QStringLiteral("AXOutline")},   // tree item
        {95, QStringLiteral("AXWebArea")},   // web document
        {98, QStringLiteral("AXList")},      // list box
        {23, QStringLiteral("AXWindow")},    // frame
        {69, QStringLiteral("AXWindow")},    // window
    };
    return roles.value(role, QStringLiteral("AXUnknown"));
}

} // namespace quillo
