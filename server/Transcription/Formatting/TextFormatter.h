#pragma once

#include "Transcription/Formatting/Token.h"
#include "Transcription/Recogniser.h"

#include <string>
#include <vector>

namespace quillo::server {

/// Turns the words of an English recogniser (lower case, numbers spelled out, dictated marks as `spokenMarks` tokens)
/// into written text, piece by piece. Not thread-safe.
///
/// If the speaker dictates punctuation, no other is added from the first dictated mark on.
class TextFormatter {
public:
    enum class Ending {
        continues, ///< the sentence continues in the next piece
        sentence,  ///< a long pause or the end of the dictation: closes the sentence
    };
    struct Written {
        std::string text;
        /// The words of `text` with their marks, each with the time of what it was recognised from.
        std::vector<Word> words;
    };

    /// The result that `commit` would give for a continuing sentence, without committing.
    [[nodiscard]] Written preview(const std::vector<Word>& words) const;
    Written commit(const std::vector<Word>& words, Ending ending);

    /// The number of dictated marks at the beginning, which belong to the previous piece.
    static size_t leadingMarks(const std::vector<Word>& words);

private:
    struct State {
        bool sentenceStart = true;
        bool speakerPunctuates = false;
        /// The sentence was closed by this formatter, not by the speaker.
        bool closedAutomatically = false;
        /// The first words of the sentence being spoken.
        std::vector<std::string> opening;
    };

    static Written write(const std::vector<Word>& words, Ending ending, State& state);
    State m_state;
};

} // namespace quillo::server
