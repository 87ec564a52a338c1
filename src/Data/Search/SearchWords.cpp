#include "Data/Search/SearchWords.h"

#include <QChar>
#include <QSet>

#include <vector>

namespace quillo::searchWords {

namespace {

/// Longer runs are not words (mostly encoded data); only their beginning is indexed.
constexpr qsizetype longestWord = 48;
/// More words than a user types; of a pasted page only the beginning is searched for.
constexpr qsizetype mostSearchWords = 32;

// Private-use characters, which do not occur in words of a text.
constexpr QChar tagMarker(u'\uE000');
constexpr QChar favoriteMarker(u'\uE001');

bool isDiacritic(char32_t character) {
    return (character >= 0x0300 && character <= 0x036f) || (character >= 0x0591 && character <= 0x05c7) ||
           (character >= 0x064b && character <= 0x065f) || character == 0x0670 ||
           (character >= 0xfe00 && character <= 0xfe0f);
}

/// Letters that Unicode does not decompose, although users type the plain letters instead.
std::u32string_view spelledOut(char32_t character) {
    switch (character) {
    case U'ß':
        return U"ss";
    case U'æ':
        return U"ae";
    case U'œ':
        return U"oe";
    case U'ø':
        return U"o";
    case U'ł':
        return U"l";
    case U'đ':
        return U"d";
    case U'ħ':
        return U"h";
    case U'ı':
        return U"i";
    default:
        return {};
    }
}

std::u32string folded(const QString& text) {
    const bool isAscii = std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; });
    if (isAscii)
        return text.toLower().toStdU32String();
    std::u32string characters;
    for (const auto character : text.normalized(QString::NormalizationForm_KD).toCaseFolded().toStdU32String()) {
        if (isDiacritic(character))
            continue;
        if (const auto letters = spelledOut(character); !letters.empty())
            characters += letters;
        else
            characters += character;
    }
    return QString::fromStdU32String(characters).normalized(QString::NormalizationForm_C).toStdU32String();
}

enum class Kind {
    gap,
    spaced,   ///< part of a word between spaces
    unspaced, ///< of a script written without spaces
    alone,    ///< a symbol that forms a word of its own, such as an emoji
};

bool isUnspacedScript(char32_t character) {
    switch (QChar::script(character)) {
    case QChar::Script_Han:
    case QChar::Script_Hiragana:
    case QChar::Script_Katakana:
    case QChar::Script_Bopomofo:
    case QChar::Script_Thai:
    case QChar::Script_Lao:
    case QChar::Script_Khmer:
    case QChar::Script_Myanmar:
    case QChar::Script_Tibetan:
    case QChar::Script_TaiLe:
    case QChar::Script_NewTaiLue:
    case QChar::Script_TaiTham:
        return true;
    default:
        return false;
    }
}

Kind kindOf(char32_t character, Kind before) {
    if (character < 0x80)
        return (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9') ? Kind::spaced
                                                                                                : Kind::gap;
    const bool isLetter = QChar::isLetterOrNumber(character) || QChar::isMark(character);
    if (isLetter && isUnspacedScript(character))
        return Kind::unspaced;
    // The long-vowel sign and similar characters have no script of their own.
    const auto script = QChar::script(character);
    if (isLetter && before == Kind::unspaced && (script == QChar::Script_Common || script == QChar::Script_Inherited) &&
        !QChar::isDigit(character))
        return Kind::unspaced;
    if (isLetter)
        return Kind::spaced;
    const auto category = QChar::category(character);
    return category == QChar::Symbol_Other || category == QChar::Symbol_Currency ? Kind::alone : Kind::gap;
}

/// Calls `sink(characters, kind)` for each run of one kind, in order; skips everything else.
template <typename Sink>
void forEachRun(const std::u32string& text, Sink sink) {
    size_t start = 0;
    Kind running = Kind::gap;
    for (size_t i = 0; i <= text.size(); ++i) {
        const Kind kind = i < text.size() ? kindOf(text[i], running) : Kind::gap;
        if (kind == running && kind != Kind::alone)
            continue;
        if (running != Kind::gap && i > start)
            sink(std::u32string_view(text).substr(start, i - start), running);
        start = i;
        running = kind;
    }
}

QString toString(std::u32string_view characters) {
    return QString::fromUcs4(characters.data(), static_cast<qsizetype>(characters.size()));
}

const QString asPrefix = QStringLiteral("*");

/// As in the index's declaration.
constexpr qsizetype longestIndexedPrefix = 5;

QString quoted(const QString& word) { return u'"' + word + u'"'; }

QString beginningWith(const QString& prefix, const Completion& completion) {
    const auto complete = isListed(prefix) ? completion(prefix) : std::nullopt;
    if (!complete)
        return quoted(prefix) + asPrefix;
    QStringList words{quoted(prefix)};
    for (const auto& word : *complete)
        if (word != prefix)
            words.append(quoted(word));
    return u'(' + words.join(QStringLiteral(" OR ")) + u')';
}

} // namespace

QString indexed(const QString& text) {
    QSet<QString> seen;
    QString words;
    words.reserve(text.size() + text.size() / 4);
    const auto add = [&](const QString& word) {
        if (seen.contains(word))
            return;
        seen.insert(word);
        if (!words.isEmpty())
            words += u' ';
        words += word;
    };
    forEachRun(folded(text), [&](std::u32string_view run, Kind kind) {
        if (kind != Kind::unspaced) {
            add(toString(run.substr(0, longestWord)));
            return;
        }
        for (size_t i = 0; i < run.size(); ++i)
            add(toString(run.substr(i, 2)));
    });
    return words;
}

QString tagMark(const QString& tagName) { return tagMarker + QString::fromLatin1(tagName.toUtf8().toHex()); }

QString favoriteMark() { return favoriteMarker; }

bool isListed(const QString& word) {
    // Counting surrogates can only make a word seem longer.
    return word.size() > longestIndexedPrefix;
}

QString matching(const QString& search, const QStringList& marks, const Completion& completion) {
    QStringList terms;
    for (const auto& mark : marks)
        terms.append(quoted(mark));
    const auto text = folded(search.left(4096));
    QString open; // the beginning of the last word, which may be incomplete
    qsizetype words = 0;
    forEachRun(text, [&](std::u32string_view run, Kind kind) {
        if (words >= mostSearchWords)
            return;
        open.clear();
        if (kind == Kind::unspaced && run.size() > 1) {
            for (size_t i = 0; i + 1 < run.size() && words < mostSearchWords; ++i, ++words)
                terms.append(quoted(toString(run.substr(i, 2))));
            return;
        }
        ++words;
        const auto word = toString(run.substr(0, longestWord));
        terms.append(quoted(word) + (kind == Kind::unspaced ? asPrefix : QString()));
        // Also after a trailing space, because otherwise the results would disappear between two words.
        if (kind == Kind::spaced)
            open = word;
    });
    if (words == 0 && !search.trimmed().isEmpty())
        return {};
    if (!open.isEmpty())
        terms.last() = beginningWith(open, completion);
    return terms.join(QStringLiteral(" AND "));
}

} // namespace quillo::searchWords
