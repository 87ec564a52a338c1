#pragma once

#include "Transcription/Recogniser.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace quillo::server {

/// Joins the final pieces of a session into its text: with one space, but none around line breaks and before marks that
/// belong to the piece before. Not thread-safe.
class TranscriptAssembler {
public:
    void append(const Transcript& piece);
    [[nodiscard]] const std::string& text() const { return m_text; }

private:
    std::string m_text;
};

/// The number of words of a text: runs between spaces and line breaks.
int64_t countWords(std::string_view text);

} // namespace quillo::server
