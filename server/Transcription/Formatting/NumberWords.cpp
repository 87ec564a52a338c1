#include "Transcription/Formatting/NumberWords.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace quillo::server {

namespace {

constexpr std::array<std::string_view, 20> small{
    "zero", "one",    "two",    "three",    "four",     "five",    "six",     "seven",     "eight",    "nine",
    "ten",  "eleven", "twelve", "thirteen", "fourteen", "fifteen", "sixteen", "seventeen", "eighteen", "nineteen"};
constexpr std::array<std::string_view, 8> tens{"twenty", "thirty",  "forty",  "fifty",
                                               "sixty",  "seventy", "eighty", "ninety"};
constexpr std::array<std::string_view, 20> smallOrdinals{
    "zeroth",     "first",     "second",    "third",       "fourth",     "fifth",     "sixth",
    "seventh",    "eighth",    "ninth",     "tenth",       "eleventh",   "twelfth",   "thirteenth",
    "fourteenth", "fifteenth", "sixteenth", "seventeenth", "eighteenth", "nineteenth"};
constexpr std::array<std::string_view, 8> tensOrdinals{"twentieth", "thirtieth",  "fortieth",  "fiftieth",
                                                       "sixtieth",  "seventieth", "eightieth", "ninetieth"};

template <size_t size>
std::optional<int> indexIn(const std::array<std::string_view, size>& table, std::string_view word) {
    const auto found = std::ranges::find(table, word);
    return found == table.end() ? std::nullopt : std::optional(static_cast<int>(found - table.begin()));
}

std::optional<int> smallOf(const Token& token) {
    return token.kind == Token::Kind::word ? indexIn(small, token.text) : std::nullopt;
}

std::optional<int> tensOf(const Token& token) {
    if (token.kind != Token::Kind::word)
        return std::nullopt;
    const auto index = indexIn(tens, token.text);
    return index ? std::optional((*index + 2) * 10) : std::nullopt;
}

int64_t scaleOf(const Token& token) {
    if (token.is("thousand"))
        return 1000;
    if (token.is("million"))
        return 1000000;
    return token.is("billion") ? 1000000000 : 0;
}

bool isNumberWord(const Token& token) {
    return smallOf(token) || tensOf(token) || token.is("hundred") || scaleOf(token) > 0;
}

/// Reads 0 to 99 at `at` and advances it.
std::optional<int> readBelowHundred(const Tokens& tokens, size_t& at, size_t end) {
    if (at == end)
        return std::nullopt;
    if (const auto value = smallOf(tokens[at])) {
        ++at;
        return value;
    }
    const auto ten = tensOf(tokens[at]);
    if (!ten)
        return std::nullopt;
    ++at;
    if (at < end)
        if (const auto unit = smallOf(tokens[at]); unit && *unit > 0 && *unit < 10) {
            ++at;
            return *ten + *unit;
        }
    return ten;
}

/// Reads 0 to 999 at `at` and advances it; "and" is allowed after "hundred" only.
std::optional<int> readBelowThousand(const Tokens& tokens, size_t& at, size_t end) {
    auto value = readBelowHundred(tokens, at, end);
    if (!value || at == end || !tokens[at].is("hundred") || *value == 0)
        return value;
    ++at;
    int total = *value * 100;
    size_t next = at < end && tokens[at].is("and") ? at + 1 : at;
    if (const auto rest = readBelowHundred(tokens, next, end); rest && *rest > 0) {
        total += *rest;
        at = next;
    }
    return total;
}

std::optional<SpokenNumber> readCardinal(const Tokens& tokens, size_t first, size_t end) {
    int64_t total = 0;
    int64_t lowestScale = INT64_MAX;
    size_t at = first;
    SpokenNumber number;
    while (at < end) {
        const size_t groupStart = at;
        if (total > 0 && tokens[at].is("and"))
            ++at;
        const auto group = readBelowThousand(tokens, at, end);
        if (!group || (total > 0 && *group == 0))
            return std::nullopt;
        const int64_t scale = at < end ? scaleOf(tokens[at]) : 0;
        if (scale == 0) {
            if (lowestScale < 1000 || at != end)
                return std::nullopt;
            total += *group;
            lowestScale = 1;
            continue;
        }
        if (scale >= lowestScale || *group == 0)
            return std::nullopt;
        if (groupStart == first && at + 1 == end && scale >= 1000000)
            number.scale = tokens[at].text;
        ++at;
        total += *group * scale;
        lowestScale = scale;
    }
    number.value = total;
    number.length = end - first;
    return number;
}

/// "nineteen eighty four", "twenty twenty six".
std::optional<SpokenNumber> readYear(const Tokens& tokens, size_t first, size_t end) {
    size_t at = first;
    const auto century = readBelowHundred(tokens, at, end);
    const auto year = readBelowHundred(tokens, at, end);
    if (!century || !year || at != end || *century < 17 || *century > 20 || *year < 10)
        return std::nullopt;
    return SpokenNumber{SpokenNumber::Form::year, *century * 100 + *year, {}, {}, end - first};
}

std::optional<SpokenNumber> readDigits(const Tokens& tokens, size_t first, size_t end) {
    std::string digits;
    for (size_t at = first; at < end; ++at) {
        const auto digit = digitOf(tokens[at]);
        if (!digit)
            return std::nullopt;
        digits += static_cast<char>('0' + *digit);
    }
    if (digits.size() < 3)
        return std::nullopt;
    // Telephone numbers, as they are grouped in North America.
    if (digits.size() == 10)
        digits.insert(6, "-").insert(3, "-");
    else if (digits.size() == 7)
        digits.insert(3, "-");
    return SpokenNumber{SpokenNumber::Form::digits, 0, digits, {}, end - first};
}

} // namespace

std::optional<int> digitOf(const Token& token) {
    if (token.is("oh"))
        return 0;
    const auto value = smallOf(token);
    return value && *value < 10 ? value : std::nullopt;
}

size_t runLength(const Tokens& tokens, size_t first) {
    size_t end = first;
    while (end < tokens.size()) {
        const bool joins = end > first && end + 1 < tokens.size() && isNumberWord(tokens[end + 1]);
        const Token& before = tokens[end > first ? end - 1 : first];
        const bool zero = joins && tokens[end].is("oh") && digitOf(before);
        const bool conjunction = joins && tokens[end].is("and") && (before.is("hundred") || scaleOf(before) > 0) &&
                                 (smallOf(tokens[end + 1]) || tensOf(tokens[end + 1]));
        if (!isNumberWord(tokens[end]) && !zero && !conjunction)
            break;
        ++end;
    }
    return end - first;
}

std::optional<SpokenNumber> readNumber(const Tokens& tokens, size_t first) {
    const size_t end = first + runLength(tokens, first);
    if (end == first)
        return std::nullopt;
    if (auto digits = readDigits(tokens, first, end))
        return digits;
    if (auto year = readYear(tokens, first, end))
        return year;
    return readCardinal(tokens, first, end);
}

std::optional<int> readOrdinal(const Tokens& tokens, size_t first, size_t& length) {
    if (first >= tokens.size() || tokens[first].kind != Token::Kind::word)
        return std::nullopt;
    length = 1;
    if (const auto value = indexIn(smallOrdinals, tokens[first].text))
        return value;
    if (const auto value = indexIn(tensOrdinals, tokens[first].text))
        return (*value + 2) * 10;
    const auto ten = tensOf(tokens[first]);
    if (!ten || first + 1 == tokens.size() || tokens[first + 1].kind != Token::Kind::word)
        return std::nullopt;
    const auto unit = indexIn(smallOrdinals, tokens[first + 1].text);
    if (!unit || *unit == 0 || *unit > 9)
        return std::nullopt;
    length = 2;
    return *ten + *unit;
}

std::string writeInteger(int64_t value) {
    std::string text = std::to_string(value);
    if (text.size() > 4)
        for (size_t at = text.size() - 3; at < text.size() && at > 0; at = at > 3 ? at - 3 : 0)
            text.insert(at, ",");
    return text;
}

} // namespace quillo::server
