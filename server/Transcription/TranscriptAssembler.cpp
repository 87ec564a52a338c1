#include "Transcription/TranscriptAssembler.h"

#include <string_view>

namespace quillo::server {

void TranscriptAssembler::append(const Transcript& piece) {
    std::string_view addition = piece.text;
    constexpr std::string_view blanks = " \t\r";
    addition.remove_prefix(std::min(addition.find_first_not_of(blanks), addition.size()));
    addition.remove_suffix(addition.size() - (addition.find_last_not_of(blanks) + 1));
    if (addition.empty())
        return;
    const bool attached =
        std::string_view("\n,;:!?").find(addition.front()) != std::string_view::npos ||
        // A full stop, unlike ".5" and ".desktop".
        (addition.front() == '.' && (addition.size() == 1 || addition[1] == ' ' || addition[1] == '\n'));
    if (!m_text.empty() && !m_text.ends_with('\n') && !attached)
        m_text += ' ';
    m_text += addition;
}

int64_t countWords(std::string_view text) {
    int64_t words = 0;
    bool inWord = false;
    for (const char c : text) {
        const bool space = c == ' ' || (c >= '\t' && c <= '\r');
        words += !space && !inWord ? 1 : 0;
        inWord = !space;
    }
    return words;
}

} // namespace quillo::server
