#pragma once

#include <array>
#include <string_view>

namespace quillo::server {

/// A punctuation mark dictated by name. `token` is its word in the recogniser's vocabulary, which differs from the
/// ordinary word and never reaches a user.
struct SpokenMark {
    std::string_view token;
    std::string_view pronunciation; ///< CMU phones
    std::string_view text;
    std::string_view name; ///< as the ordinary vocabulary spells it
};

constexpr std::array spokenMarks{
    SpokenMark{",comma", "K AA M AH", ",", "comma"},
    SpokenMark{".period", "P IH R IY AH D", ".", "period"},
    SpokenMark{"?question-mark", "K W EH S CH AH N M AA R K", "?", "question mark"},
    SpokenMark{"!exclamation-point", "EH K S K L AH M EY SH AH N P OY N T", "!", "exclamation point"},
    SpokenMark{"!exclamation-mark", "EH K S K L AH M EY SH AH N M AA R K", "!", "exclamation mark"},
    SpokenMark{"\\new-line", "N UW L AY N", "\n", "new line"},
    SpokenMark{"\\new-paragraph", "N UW P AE R AH G R AE F", "\n\n", "new paragraph"},
    SpokenMark{"\"open-quote", "OW P AH N K W OW T", "\"", "open quote"},
    SpokenMark{"\"close-quote", "K L OW Z K W OW T", "\"", "close quote"},
};

} // namespace quillo::server
