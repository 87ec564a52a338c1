#pragma once

#include "Platform/Accessibility.h"
#include "Platform/Applications.h"
#include "Platform/KeyInjector.h"

#include <QString>

namespace quillo {

/// What every application takes as its paste shortcut, by what is known of the application.
PasteChord pasteChordFor(const std::optional<RunningApplication>& application);

/// `text` with line ends made "\n" and every other control character but the tab removed: dictated text never holds
/// one on purpose, and a terminal acts on them.
QString withoutControlCharacters(const QString& text);

/// Whether the role alone says that it is one.
bool isTextRole(const QString& role);
/// Whether text can be written into `element`: by its role where the role tells, else by what the element can do.
bool isTextField(const FocusedElement& element);

} // namespace quillo
