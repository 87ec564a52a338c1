#pragma once

#include <QByteArray>
#include <QString>

#include <map>

namespace quillo {

/// The formats a selection is offered in, by target name.
using SelectionFormats = std::map<QString, QByteArray>;

/// Text as the targets that programs ask text for.
[[nodiscard]] SelectionFormats textFormats(const QString& text);
/// Whether a target is part of the protocol rather than a format of the content.
[[nodiscard]] bool isProtocolTarget(const QString& target);
/// Whether a target is text; those are saved first when time is short.
[[nodiscard]] bool isTextTarget(const QString& target);
/// The property type that content of this target is sent with.
[[nodiscard]] QString typeOfTarget(const QString& target);

} // namespace quillo
