#pragma once

#include <QByteArray>
#include <QString>

#include <map>

namespace quillo {

/// The formats a selection is offered in, by target name.
using SelectionFormats = std::map<QString, QByteArray>;

/// Asks clipboard managers to keep nothing of the content; its value is "secret" (Klipper's convention, which others
/// follow).
inline const QString privacyHint = QStringLiteral("x-kde-passwordManagerHint");

/// A text in all targets that programs request for text, with the privacy hint if it `isSecret`.
[[nodiscard]] SelectionFormats textFormats(const QString& text, bool isSecret);
/// Whether a target is part of the protocol rather than a format of the content.
[[nodiscard]] bool isProtocolTarget(const QString& target);
/// Whether a target is text; text is saved first in case time is short.
[[nodiscard]] bool isTextTarget(const QString& target);
/// The property type used to send this target.
[[nodiscard]] QString typeOfTarget(const QString& target);

} // namespace quillo
