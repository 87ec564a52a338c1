#pragma once

#include "Data/Models/TranscriptionRecord.h"

#include <optional>

namespace quillo::recordExport {

enum class Format { srt, vtt, txt, markdown };

/// The format with this file name ending ("srt", "vtt", "txt", "md").
[[nodiscard]] std::optional<Format> formatOf(const QString& ending);
/// The record in this format. A record whose speakers were not told apart is shown by its channels, and a dictation is
/// its text. Throws HistoryError when a subtitle is asked for and no times are known.
[[nodiscard]] QString exported(const TranscriptionRecord& record, Format format);

} // namespace quillo::recordExport
