#pragma once

#include "Transcription/Recogniser.h"

#include <string>
#include <vector>

namespace quillo::server {

/// A piece of text between recognised words and written text.
struct Token {
    enum class Kind {
        word,
        number,    ///< digits: later passes do not change it
        mark,      ///< , . ? !
        lineBreak, ///< one or two line feeds
        openQuote,
        closeQuote,
    };
    std::string text;
    Kind kind = Kind::word;
    double start = 0;
    double end = 0;
    double confidence = 1;

    [[nodiscard]] bool is(std::string_view word) const { return kind == Kind::word && text == word; }
};

using Tokens = std::vector<Token>;

/// Replaces `count` tokens from `first` by one that spans their time.
void mergeTokens(Tokens& tokens, size_t first, size_t count, std::string text, Token::Kind kind);

} // namespace quillo::server
