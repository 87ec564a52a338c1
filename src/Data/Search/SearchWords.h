#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace quillo {

/// Turns texts into words of the full-text index, and the user's search into a query for the same words.
///
/// Words are folded: compatibility forms, case, and Latin, Greek, Cyrillic, Arabic and Hebrew diacritics are removed.
/// Scripts written without spaces (Chinese, Japanese, Thai and others) yield every pair of neighbouring characters and
/// the last character alone, so that two or more characters are found by their pairs and a single one as a prefix.
namespace searchWords {

/// Increase it with every change of the rules: an index made by other rules is rebuilt.
inline constexpr int rulesVersion = 1;

/// The words of a text, each once, separated by spaces.
QString indexed(const QString& text);
/// Words that represent properties of a record and cannot be typed.
QString tagMark(const QString& tagName);
QString favoriteMark();

/// Whether the word is listed for completing incomplete words: the index is slow for prefixes longer than those it was
/// built for.
bool isListed(const QString& word);

/// The listed words that begin with `prefix`; nothing when there are too many to search for each.
using Completion = std::function<std::optional<QStringList>(const QString& prefix)>;

/// The index's query for `search` and `marks` (from `tagMark` and `favoriteMark`), all required, the last word as a
/// prefix. Empty when there is nothing to search for.
QString matching(const QString& search, const QStringList& marks, const Completion& completion);

} // namespace searchWords

} // namespace quillo
