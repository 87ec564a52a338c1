#pragma once

#include "Transcription/Recogniser.h"

#include <string>

namespace quillo::server {

/// Joins the final pieces of a session into its text: with one space, but none around line breaks and before marks that
/// belong to the piece before. Not thread-safe.
class TranscriptAssembler {
public:
    void append(const Transcript& piece);
    [[nodiscard]] const std::string& text() const { return text_; }

private:
    std::string text_;
};

} // namespace quillo::server
