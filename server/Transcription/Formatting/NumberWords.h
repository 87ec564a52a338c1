#pragma once

#include "Transcription/Formatting/Token.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace quillo::server {

/// A number found in consecutive words.
struct SpokenNumber {
    enum class Form { cardinal, year, digits };
    Form form = Form::cardinal;
    int64_t value = 0;
    std::string digits; ///< of Form::digits
    std::string scale;  ///< "million" or "billion" when the number is a small multiple of it; part of `value`
    size_t length = 0;  ///< words
};

/// The longest run of number words that begins at `first`, if it is unambiguous. Callers skip an ambiguous run by
/// `runLength`.
std::optional<SpokenNumber> readNumber(const Tokens& tokens, size_t first);
/// Words from `first` that belong to one run of number words; 0 when there is none.
size_t runLength(const Tokens& tokens, size_t first);
/// "third" is 3, "twenty first" is 21 (two words); `length` is set to the words read. Up to 99.
std::optional<int> readOrdinal(const Tokens& tokens, size_t first, size_t& length);
/// 0 to 9; "oh" counts as zero.
std::optional<int> digitOf(const Token& token);

/// Digits with thousands separators from five digits on.
std::string writeInteger(int64_t value);

} // namespace quillo::server
