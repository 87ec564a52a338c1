#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

namespace quillo {

/// The interface texts, from the catalogues compiled into the program: `catalogues/<locale>.json`, each one object of
/// text keys and texts. Add a new key to every catalogue; inserted values are written as %1, %2, ... in all of them.
/// Thread-safe.
class LocalizationStrings {
public:
    using Texts = QHash<QString, QString>; ///< by locale code

    /// Text key to locale code to text.
    static const QHash<QString, Texts>& strings();
    /// The codes of the catalogues, "en" first.
    static const QStringList& locales();
};

} // namespace quillo
