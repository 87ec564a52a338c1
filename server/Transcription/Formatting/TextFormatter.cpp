#include "Transcription/Formatting/TextFormatter.h"

#include "Transcription/Formatting/NumberFormatter.h"
#include "Transcription/Formatting/Vocabulary.h"
#include "Transcription/SpokenMarks.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace quillo::server {

namespace {

using Kind = Token::Kind;

Kind kindOf(const SpokenMark& mark) {
    if (mark.text.front() == '\n')
        return Kind::lineBreak;
    if (mark.text == "\"")
        return mark.token == "\"open-quote" ? Kind::openQuote : Kind::closeQuote;
    return Kind::mark;
}

const SpokenMark* markOf(const std::string& token) {
    const auto found = std::ranges::find(spokenMarks, token, &SpokenMark::token);
    return found == spokenMarks.end() ? nullptr : &*found;
}

bool isDeterminer(std::string_view word) {
    constexpr std::array<std::string_view, 8> determiners{"a", "the", "this", "that", "every", "each", "another", "my"};
    return std::ranges::find(determiners, word) != determiners.end();
}

/// A mark spelled in ordinary words at `at`, where another meaning is unlikely. `length` is set to its number of words.
const SpokenMark* plainMarkAt(const std::vector<Word>& words, size_t at, size_t& length) {
    const bool pair = at + 1 < words.size();
    const std::string name = pair ? words[at].text + " " + words[at + 1].text : std::string();
    for (const SpokenMark& mark : spokenMarks) {
        if (pair && mark.name == name) {
            length = 2;
            const bool alone = words.size() == 2;
            const bool last = at + 2 == words.size() && at > 0 && !isDeterminer(words[at - 1].text);
            const bool rareOtherwise = kindOf(mark) == Kind::mark || kindOf(mark) == Kind::lineBreak;
            return rareOtherwise && (alone || last) ? &mark : nullptr;
        }
        if (mark.name == "period" && words[at].text == mark.name) {
            length = 1;
            const bool last = at + 1 == words.size();
            const std::string_view before = at > 0 ? words[at - 1].text : std::string_view();
            const std::string_view beforeThat = at > 1 ? words[at - 2].text : std::string_view();
            return last && !qualifiesPeriod(beforeThat, before) ? &mark : nullptr;
        }
    }
    return nullptr;
}

Tokens tokensOf(const std::vector<Word>& words) {
    Tokens tokens;
    for (size_t at = 0; at < words.size(); ++at) {
        const Word& word = words[at];
        size_t length = 1;
        const SpokenMark* mark = markOf(word.text);
        if (mark == nullptr)
            mark = plainMarkAt(words, at, length);
        if (mark == nullptr) {
            tokens.push_back({word.text, Kind::word, word.start, word.end, word.confidence});
            continue;
        }
        tokens.push_back(
            {std::string(mark->text), kindOf(*mark), word.start, words[at + length - 1].end, word.confidence});
        at += length - 1;
    }
    return tokens;
}

bool endsSentence(const Token& token) {
    return token.kind == Kind::lineBreak ||
           (token.kind == Kind::mark && (token.text == "." || token.text == "?" || token.text == "!"));
}

bool isMarkAt(const Tokens& tokens, size_t at) { return at < tokens.size() && tokens[at].kind == Kind::mark; }

/// "march" and "may" are months only next to certain words.
bool isMonthHere(const Tokens& tokens, size_t at) {
    if (!tokens[at].is("march") && !tokens[at].is("may"))
        return false;
    const bool numberFollows = at + 1 < tokens.size() && tokens[at + 1].kind == Kind::number;
    return numberFollows || (at > 0 && tokens[at - 1].kind == Kind::word && introducesDate(tokens[at - 1].text));
}

} // namespace

size_t TextFormatter::leadingMarks(const std::vector<Word>& words) {
    return static_cast<size_t>(
        std::ranges::find_if(words, [](const Word& word) { return markOf(word.text) == nullptr; }) - words.begin());
}

TextFormatter::Written TextFormatter::preview(const std::vector<Word>& words) const {
    State state = m_state;
    return write(words, Ending::continues, state);
}

TextFormatter::Written TextFormatter::commit(const std::vector<Word>& words, Ending ending) {
    return write(words, ending, m_state);
}

TextFormatter::Written TextFormatter::write(const std::vector<Word>& words, Ending ending, State& state) {
    Tokens tokens = tokensOf(words);
    if (state.closedAutomatically && !state.speakerPunctuates)
        while (isMarkAt(tokens, 0))
            tokens.erase(tokens.begin()); // the sentence is already closed
    writeNumbers(tokens);

    Written written;
    bool glue = true;
    bool nameFollows = false;
    for (size_t at = 0; at < tokens.size(); ++at) {
        Token& token = tokens[at];
        std::string text = token.text;
        bool glueLeft = glue;
        glue = false;
        if (token.kind == Kind::word || token.kind == Kind::number) {
            if (token.kind == Kind::word) {
                if (state.opening.size() < 2)
                    state.opening.push_back(text);
                const bool title = isTitle(text);
                text = isMonthHere(tokens, at) ? capitalised(text) : writtenForm(text);
                if (nameFollows)
                    text = capitalised(text);
                nameFollows = title;
            } else if (state.opening.size() < 2) {
                state.opening.push_back(text);
            }
            if (state.sentenceStart)
                text = capitalised(text);
            state.sentenceStart = false;
            state.closedAutomatically = false;
        } else {
            state.speakerPunctuates = true;
            glueLeft = glueLeft || token.kind != Kind::openQuote;
            glue = token.kind == Kind::openQuote || token.kind == Kind::lineBreak;
            // "2 p.m." already ends with a point.
            if (token.text == "." && written.text.ends_with('.'))
                text.clear();
            if (endsSentence(token)) {
                state.sentenceStart = true;
                state.closedAutomatically = false;
                state.opening.clear();
            }
        }
        if (!glueLeft)
            written.text += ' ';
        written.text += text;
        if (token.kind == Kind::lineBreak || text.empty())
            continue;
        const bool attaches = token.kind == Kind::mark || token.kind == Kind::closeQuote;
        const bool afterQuote = at > 0 && tokens[at - 1].kind == Kind::openQuote;
        if (!written.words.empty() && (attaches || (afterQuote && written.words.back().text.ends_with('"')))) {
            written.words.back().text += text;
            written.words.back().end = token.end;
        } else {
            written.words.push_back({text, token.start, token.end, token.confidence});
        }
    }
    const bool open = !state.sentenceStart && !state.speakerPunctuates;
    if (ending == Ending::sentence && open && !written.text.empty()) {
        const bool question = state.opening.size() == 2 && opensQuestion(state.opening[0], state.opening[1]);
        const char* mark = question ? "?" : ".";
        if (question || !written.text.ends_with('.')) {
            written.text += mark;
            if (!written.words.empty())
                written.words.back().text += mark;
        }
        state.sentenceStart = true;
        state.closedAutomatically = true;
        state.opening.clear();
    }
    return written;
}

} // namespace quillo::server
