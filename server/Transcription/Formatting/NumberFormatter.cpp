#include "Transcription/Formatting/NumberFormatter.h"

#include "Transcription/Formatting/NumberWords.h"
#include "Transcription/Formatting/Vocabulary.h"

#include <algorithm>

namespace quillo::server {

namespace {

using Form = SpokenNumber::Form;

bool wordAt(const Tokens& tokens, size_t at, std::string_view word) {
    return at < tokens.size() && tokens[at].is(word);
}

std::string twoDigits(int value) { return (value < 10 ? "0" : "") + std::to_string(value); }

std::string ordinalSuffix(int value) {
    if (value % 100 / 10 == 1)
        return "th";
    switch (value % 10) {
    case 1:
        return "st";
    case 2:
        return "nd";
    case 3:
        return "rd";
    default:
        return "th";
    }
}

/// "am", "a m", "a.m." at `at`: the words it takes, 0 when it is not there.
size_t halfOfDay(const Tokens& tokens, size_t at, std::string& text) {
    if (at >= tokens.size() || tokens[at].kind != Token::Kind::word)
        return 0;
    for (const char* letter : {"a", "p"}) {
        const std::string half = std::string(letter) + ".m.";
        const bool together = tokens[at].text == std::string(letter) + "m" || tokens[at].text == half;
        const bool apart = tokens[at].text == letter && (wordAt(tokens, at + 1, "m") || wordAt(tokens, at + 1, "m."));
        if (!together && !apart)
            continue;
        const size_t length = together ? 1 : 2;
        // "which one am I"
        if (wordAt(tokens, at + length, "i"))
            return 0;
        text = half;
        return length;
    }
    return 0;
}

std::optional<int> hourAt(const Tokens& tokens, size_t at) {
    if (at >= tokens.size())
        return std::nullopt;
    const Tokens one{tokens[at]};
    const auto number = readNumber(one, 0);
    return number && number->value >= 1 && number->value <= 12 ? std::optional(static_cast<int>(number->value))
                                                               : std::nullopt;
}

/// Minutes after an hour: "thirty", "forty five", "oh five". `length` is set to the words read.
std::optional<int> minutesAt(const Tokens& tokens, size_t at, size_t& length) {
    if (wordAt(tokens, at, "oh") && at + 1 < tokens.size()) {
        length = 2;
        const auto digit = digitOf(tokens[at + 1]);
        return digit && *digit > 0 ? digit : std::nullopt;
    }
    length = runLength(tokens, at);
    if (length == 0 || length > 2)
        return std::nullopt;
    const auto number = readNumber(tokens, at);
    if (!number || number->form != Form::cardinal || number->value < 10 || number->value > 59)
        return std::nullopt;
    return static_cast<int>(number->value);
}

bool writeTime(Tokens& tokens, size_t at) {
    const auto hour = hourAt(tokens, at);
    if (!hour)
        return false;
    std::string half;
    if (wordAt(tokens, at + 1, "o'clock")) {
        mergeTokens(tokens, at, 2, std::to_string(*hour) + " o'clock", Token::Kind::number);
        return true;
    }
    if (const size_t length = halfOfDay(tokens, at + 1, half)) {
        mergeTokens(tokens, at, 1 + length, std::to_string(*hour) + " " + half, Token::Kind::number);
        return true;
    }
    size_t length = 0;
    const auto minutes = minutesAt(tokens, at + 1, length);
    if (!minutes)
        return false;
    const std::string time = std::to_string(*hour) + ":" + twoDigits(*minutes);
    if (const size_t halfLength = halfOfDay(tokens, at + 1 + length, half)) {
        mergeTokens(tokens, at, 1 + length + halfLength, time + " " + half, Token::Kind::number);
        return true;
    }
    // Without "am" or "pm", only the preceding word distinguishes a time from other pairs of numbers.
    const bool isTime = at > 0 && tokens[at - 1].is("at");
    const bool counts = at + 1 + length < tokens.size() && wordAt(tokens, at + 1 + length, "percent");
    if (!isTime || counts)
        return false;
    mergeTokens(tokens, at, 1 + length, time, Token::Kind::number);
    return true;
}

/// "march third", "march third two thousand twenty six", "may twenty first".
bool writeDate(Tokens& tokens, size_t at) {
    if (tokens[at].kind != Token::Kind::word || !isMonth(tokens[at].text))
        return false;
    size_t length = 0;
    const auto day = readOrdinal(tokens, at + 1, length);
    if (!day || *day < 1 || *day > 31)
        return false;
    // "you may first", "they march second"
    const bool couldBeVerb = tokens[at].is("may") || tokens[at].is("march");
    if (couldBeVerb && *day <= 2 && !(at > 0 && introducesDate(tokens[at - 1].text)))
        return false;
    std::string text = capitalised(tokens[at].text) + " " + std::to_string(*day);
    size_t total = 1 + length;
    if (const auto year = readNumber(tokens, at + total);
        year && year->form != Form::digits && year->value >= 1700 && year->value < 2100) {
        text += ", " + std::to_string(year->value);
        total += year->length;
    }
    mergeTokens(tokens, at, total, text, Token::Kind::number);
    return true;
}

bool writeOrdinal(Tokens& tokens, size_t at) {
    size_t length = 0;
    const auto value = readOrdinal(tokens, at, length);
    if (!value || *value < 10)
        return false;
    mergeTokens(tokens, at, length, std::to_string(*value) + ordinalSuffix(*value), Token::Kind::number);
    return true;
}

/// The number followed by its unit, if it has one that is written as a sign.
bool writeWithUnit(Tokens& tokens, size_t at, size_t length, const std::string& digits, const std::string& scale) {
    const size_t unit = at + length;
    if (unit >= tokens.size() || tokens[unit].kind != Token::Kind::word)
        return false;
    const std::string& word = tokens[unit].text;
    const std::string amount = digits + (scale.empty() ? "" : " " + scale);
    if (word == "percent") {
        mergeTokens(tokens, at, length + 1, amount + (scale.empty() ? "%" : " percent"), Token::Kind::number);
        return true;
    }
    const bool dollars = word == "dollar" || word == "dollars";
    if (!dollars && word != "euro" && word != "euros")
        return false;
    std::string text = (dollars ? "$" : "€") + amount;
    size_t total = length + 1;
    size_t cents = wordAt(tokens, at + total, "and") ? at + total + 1 : at + total;
    if (const auto number = readNumber(tokens, cents);
        scale.empty() && number && number->form == Form::cardinal && number->value < 100 &&
        (wordAt(tokens, cents + number->length, "cents") || wordAt(tokens, cents + number->length, "cent"))) {
        text += "." + twoDigits(static_cast<int>(number->value));
        total = cents + number->length + 1 - at;
    }
    mergeTokens(tokens, at, total, text, Token::Kind::number);
    return true;
}

/// Digits after "point": "three point one four". Empty when there are none.
std::string decimalsAt(const Tokens& tokens, size_t at, size_t& length) {
    std::string digits;
    length = 0;
    if (!wordAt(tokens, at, "point"))
        return digits;
    for (size_t next = at + 1; next < tokens.size(); ++next) {
        const auto digit = digitOf(tokens[next]);
        if (!digit)
            break;
        digits += static_cast<char>('0' + *digit);
    }
    length = digits.empty() ? 0 : 1 + digits.size();
    return digits;
}

/// Writes the number at `at`; returns how many words it took.
size_t writeNumber(Tokens& tokens, size_t at) {
    const bool article = tokens[at].is("a");
    const size_t first = article ? at + 1 : at;
    const size_t run = runLength(tokens, first);
    if (run == 0)
        return 1;
    std::optional<SpokenNumber> number;
    if (article) {
        // "a hundred and fifty", but never "a hundred" or "a five".
        if (run < 3)
            return 1;
        Tokens spelled(tokens.begin() + static_cast<ptrdiff_t>(at),
                       tokens.begin() + static_cast<ptrdiff_t>(first + run));
        spelled.front().text = "one";
        number = readNumber(spelled, 0);
        if (number && (number->length != run + 1 || number->value <= 100))
            number.reset();
    } else {
        number = readNumber(tokens, first);
    }
    if (!number)
        return (article ? 1 : 0) + run;
    if (number->form == Form::digits) {
        mergeTokens(tokens, at, number->length, number->digits, Token::Kind::number);
        return 1;
    }
    const bool year = number->form == Form::year;
    int64_t scaled = number->value;
    if (!number->scale.empty())
        scaled /= number->scale == "million" ? 1000000 : 1000000000;
    std::string digits = year ? std::to_string(number->value) : writeInteger(scaled);
    size_t length = number->length;
    size_t decimals = 0;
    const std::string fraction =
        year || !number->scale.empty() ? std::string() : decimalsAt(tokens, at + length, decimals);
    std::string scale = number->scale;
    if (!fraction.empty()) {
        digits += "." + fraction;
        length += decimals;
        if (wordAt(tokens, at + length, "million") || wordAt(tokens, at + length, "billion"))
            scale = tokens[at + length++].text;
    }
    if (writeWithUnit(tokens, at, length, digits, scale))
        return 1;
    if (number->value < 10 && fraction.empty())
        return number->length;
    mergeTokens(tokens, at, length, digits + (scale.empty() ? "" : " " + scale), Token::Kind::number);
    return 1;
}

} // namespace

void mergeTokens(Tokens& tokens, size_t first, size_t count, std::string text, Token::Kind kind) {
    Token& merged = tokens[first];
    double confidence = 0;
    for (size_t i = first; i < first + count; ++i)
        confidence += tokens[i].confidence;
    merged.text = std::move(text);
    merged.kind = kind;
    merged.end = tokens[first + count - 1].end;
    merged.confidence = confidence / static_cast<double>(count);
    const auto second = tokens.begin() + static_cast<ptrdiff_t>(first) + 1;
    tokens.erase(second, second + static_cast<ptrdiff_t>(count) - 1);
}

void writeNumbers(Tokens& tokens) {
    for (size_t at = 0; at < tokens.size();) {
        if (writeTime(tokens, at) || writeDate(tokens, at) || writeOrdinal(tokens, at))
            ++at;
        else
            at += writeNumber(tokens, at);
    }
}

} // namespace quillo::server
