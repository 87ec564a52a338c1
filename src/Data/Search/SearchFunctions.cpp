#include "Data/Search/SearchFunctions.h"

#include "Data/Models/TranscriptionRecord.h"
#include "Data/Search/SearchWords.h"

#include <algorithm>
#include <cmath>

#include <sqlite3.h>

namespace quillo {

namespace {

QString text(sqlite3_value* value) {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_value_text(value));
    return bytes ? QString::fromUtf8(bytes, sqlite3_value_bytes(value)) : QString();
}

QByteArray blob(sqlite3_value* value) {
    const auto* bytes = static_cast<const char*>(sqlite3_value_blob(value));
    return QByteArray(bytes, bytes ? sqlite3_value_bytes(value) : 0);
}

struct Words {
    QString text;
    QStringList tags;
};

/// Of the first four arguments.
Words wordsOf(sqlite3_value** arguments) {
    Words words;
    words.tags = decodeTagNames(blob(arguments[3]));
    // A line break ends a word, also in scripts without spaces.
    const QStringList texts{text(arguments[0]), text(arguments[1]), text(arguments[2]), words.tags.join(u'\n')};
    words.text = searchWords::indexed(texts.join(u'\n'));
    return words;
}

void setResult(sqlite3_context* context, const QByteArray& bytes) {
    sqlite3_result_text64(context, bytes.constData(), static_cast<sqlite3_uint64>(bytes.size()), SQLITE_TRANSIENT,
                          SQLITE_UTF8);
}

void words(sqlite3_context* context, int /*count*/, sqlite3_value** arguments) {
    try {
        auto [result, tags] = wordsOf(arguments);
        for (const auto& tag : tags)
            result += u' ' + searchWords::tagMark(tag);
        if (sqlite3_value_int(arguments[4]) != 0)
            result += u' ' + searchWords::favoriteMark();
        setResult(context, result.toUtf8());
    } catch (const std::bad_alloc&) {
        sqlite3_result_error_nomem(context);
    }
}

void longWords(sqlite3_context* context, int /*count*/, sqlite3_value** arguments) {
    try {
        QByteArray array("[");
        for (const auto& word : wordsOf(arguments).text.split(u' '))
            // Letters and digits only: nothing to escape.
            if (searchWords::isListed(word))
                array += (array.size() > 1 ? ",\"" : "\"") + word.toUtf8() + '"';
        setResult(context, array + ']');
    } catch (const std::bad_alloc&) {
        sqlite3_result_error_nomem(context);
    }
}

void position(sqlite3_context* context, int /*count*/, sqlite3_value** arguments) {
    sqlite3_result_int64(context, positionOf(sqlite3_value_double(arguments[0])));
}

} // namespace

int64_t positionOf(double createdAt) {
    // Leaves room for the positions of a millisecond and represents dates far beyond any calendar.
    constexpr double furthest = 4e12;
    constexpr int64_t placesPerMillisecond = 16;
    const double seconds = std::isfinite(createdAt) ? std::clamp(createdAt, -furthest, furthest) : 0;
    return static_cast<int64_t>(std::llround(seconds * 1000)) * placesPerMillisecond;
}

void registerSearchFunctions(sqlite3* database) {
    constexpr int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
    sqlite3_create_function_v2(database, "quillo_words", 5, flags, nullptr, words, nullptr, nullptr, nullptr);
    sqlite3_create_function_v2(database, "quillo_long_words", 5, flags, nullptr, longWords, nullptr, nullptr, nullptr);
    sqlite3_create_function_v2(database, "quillo_position", 1, flags, nullptr, position, nullptr, nullptr, nullptr);
}

} // namespace quillo
