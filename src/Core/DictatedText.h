#pragma once

#include <QString>

namespace quillo {

/// Marks what somebody dictated within a log message. The log file, which is its owner's alone, shows it; the journal,
/// which administrators read, and the console, which a session writes into the journal, show only its length. Any
/// thread.
[[nodiscard]] QString dictated(const QString& text);

/// Removes a deleted dictation from the log file. Any thread.
void forgetDictated(const QString& text);

} // namespace quillo
