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

/// Whether `text` has line ends or tabs. As keys they would send a message, run a command or leave the field.
bool holdsKeysThatAct(const QString& text);

/// `text` as `application` may get it: at the end of a text that goes to a terminal, line ends would run it.
QString textFor(const std::optional<RunningApplication>& application, QString text);

/// Whether a blank belongs between `before`, which ends at the caret, and `text`: a word follows a word or a mark, in a
/// script that parts its words.
bool needsBlankBetween(QStringView before, QStringView text);

/// Whether the role alone says that it is one.
bool isTextRole(const QString& role);
/// Whether `element` accepts text: by its role if that is conclusive, otherwise by its capabilities.
bool isTextField(const FocusedElement& element);

} // namespace quillo
