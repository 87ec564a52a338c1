#pragma once

#include "Core/UserError.h"

namespace quillo {

/// Why an action on the history failed.
class HistoryError final : public UserError {
public:
    enum class Code {
        noHistory,       ///< it could not be opened at the start
        noRecord,        ///< %1: the id
        ambiguousId,     ///< %1: the beginning of several ids, %2: some of them
        recordBusy,      ///< its dictation or transcription is still running
        queueNotReady,   ///< the program is starting
        unknownLanguage, ///< %1: the code that was asked for
        audioGone,       ///< nothing to transcribe again
        audioNotKept,    ///< nothing to play
        noSegments,      ///< no times are known for a subtitle
        audioNotDeleted, ///< %1: the file that is left, the record is gone
    };
    explicit HistoryError(Code code, const QStringList& arguments = {});
    [[nodiscard]] Code code() const { return m_code; }

private:
    Code m_code;
};

} // namespace quillo
