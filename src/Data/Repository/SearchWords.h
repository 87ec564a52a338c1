#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace quillo {

/// How texts become words of the full-text index, and what the user types becomes a query of the same words.
///
/// Words are folded: compatibility forms, case and Latin, Greek, Cyrillic, Arabic and Hebrew diacritics are gone.
/// Scripts written without spaces (Chinese, Japanese, Thai and others) give every pair of neighbouring characters, and
/// the last character alone: any stretch of two or more is then found by its pairs, a single one as a prefix.
namespace searchWords {

/// To be increased with every change of the rules: an index made by other rules is rebuilt.
inline constexpr int rulesVersion = 1;

/// The words of a text, each once, separated by spaces.
QString indexed(const QString& text);
/// Words that stand for facts of a record and cannot be typed.
QString tagMark(const QString& tagName);
QString favoriteMark();

/// Whether the word is kept in the list that completes what is typed: the index itself is slow at beginnings longer
/// than those it was made for.
bool isListed(const QString& word);

/// The listed words that begin with `prefix`; nothing when there are too many to look for each.
using Completion = std::function<std::optional<QStringList>(const QString& prefix)>;

/// The index's query for `search` and `marks` (from `tagMark` and `favoriteMark`), everything required, the last word
/// as a prefix. Empty when there is nothing to look for.
QString matching(const QString& search, const QStringList& marks, const Completion& completion);

} // namespace searchWords

} // namespace quillo
