#include "Transcription/Formatting/Vocabulary.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>

namespace quillo::server {

namespace {

bool oneOf(std::string_view word, std::initializer_list<std::string_view> words) {
    return std::ranges::find(words, word) != words.end();
}

/// Names that are not also ordinary words (as "mark", "will", "may", "polish", "turkey" are).
constexpr std::array names{
    "monday",   "tuesday",   "wednesday", "thursday",     "friday",    "saturday",   "sunday",     "january",
    "february", "april",     "june",      "july",         "august",    "september",  "october",    "november",
    "december", "english",   "american",  "british",      "french",    "german",     "spanish",    "italian",
    "chinese",  "japanese",  "russian",   "dutch",        "european",  "canadian",   "america",    "england",
    "britain",  "france",    "germany",   "spain",        "italy",     "japan",      "russia",     "canada",
    "europe",   "africa",    "asia",      "australia",    "london",    "paris",      "berlin",     "madrid",
    "rome",     "tokyo",     "chicago",   "boston",       "seattle",   "washington", "california", "texas",
    "florida",  "christmas", "easter",    "thanksgiving", "john",      "peter",      "michael",    "david",
    "james",    "william",   "thomas",    "mary",         "elizabeth", "sarah",      "anna",       "paul",
    "robert",   "google",    "microsoft", "linux",
};

constexpr std::array acronyms{"pdf", "usb", "cpu", "usa", "tv", "ceo", "url", "html", "sql", "ok", "uk", "dvd", "faq"};

} // namespace

bool isMonth(std::string_view word) {
    return oneOf(word, {"january", "february", "march", "april", "may", "june", "july", "august", "september",
                        "october", "november", "december"});
}

bool introducesDate(std::string_view word) {
    return oneOf(word, {"in", "of", "on", "by", "until", "till", "since", "before", "after", "from", "last", "next",
                        "early", "late", "mid"});
}

bool isTitle(std::string_view word) { return oneOf(word, {"mr", "mr.", "mrs", "mrs.", "ms", "ms.", "dr", "dr."}); }

std::string capitalised(std::string word) {
    if (!word.empty() && word.front() >= 'a' && word.front() <= 'z')
        word.front() = static_cast<char>(word.front() - 'a' + 'A');
    return word;
}

std::string writtenForm(const std::string& word) {
    const std::string stem = word.substr(0, word.find('\''));
    if (stem == "i")
        return capitalised(word);
    if (isTitle(word))
        return capitalised(word) + (word.ends_with('.') ? "" : ".");
    if (std::ranges::find(acronyms, stem) != acronyms.end()) {
        std::string upper = word;
        std::transform(upper.begin(), upper.begin() + static_cast<std::ptrdiff_t>(stem.size()), upper.begin(),
                       [](char letter) { return static_cast<char>(letter - 'a' + 'A'); });
        return upper;
    }
    if (std::ranges::find(names, stem) != names.end())
        return capitalised(word);
    // "mondays"
    if (stem.ends_with("days") && std::ranges::find(names, stem.substr(0, stem.size() - 1)) != names.end())
        return capitalised(word);
    return word;
}

bool opensQuestion(std::string_view first, std::string_view second) {
    const auto auxiliary = [](std::string_view word) {
        return oneOf(word, {"do", "does", "did", "is", "are", "was", "were", "can", "could", "will", "would", "should",
                            "have", "has", "am", "shall", "must"});
    };
    if (oneOf(first, {"what", "where", "when", "why", "who", "how", "which"}))
        return auxiliary(second);
    if (oneOf(first, {"what's", "where's", "who's", "how's"}))
        return true;
    if (first == "may")
        return oneOf(second, {"i", "we"});
    const bool pronoun = oneOf(second, {"i", "you", "we", "he", "she", "it", "they", "there", "this", "that", "anyone",
                                        "anybody", "everyone", "someone"});
    if (oneOf(first, {"isn't", "aren't", "wasn't", "weren't", "don't", "doesn't", "didn't", "can't", "couldn't",
                      "won't", "wouldn't", "shouldn't", "haven't", "hasn't"}))
        // "don't you dare" against "don't you agree": neither is certain.
        return pronoun && first != "don't";
    return auxiliary(first) && pronoun && !(oneOf(first, {"do", "have"}) && oneOf(second, {"it", "this", "that"}));
}

bool qualifiesPeriod(std::string_view beforeLast, std::string_view last) {
    // "a two week period" against "by the end of the week, full stop"
    if (oneOf(last, {"year", "month", "week", "day", "hour"}))
        return !oneOf(beforeLast, {"the", "this", "that", "next", "last", "every", "each"});
    return oneOf(last,
                 {"a",     "an",     "the",   "this",  "that",      "each",      "every",   "any",    "same",
                  "time",  "trial",  "grace", "long",  "short",     "brief",     "waiting", "notice", "transition",
                  "first", "second", "third", "last",  "next",      "holiday",   "war",     "his",    "her",
                  "my",    "your",   "our",   "their", "reporting", "accounting"});
}

} // namespace quillo::server
