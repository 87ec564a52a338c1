#pragma once

#include <QString>
#include <QStringList>

namespace quillo {

/// A text for the user: the key of a catalogue text and the values for its placeholders %1, %2, ... The words are
/// looked up where the text is shown (`LocalizationManager::t`), so they follow the interface language. Any thread.
struct UserMessage {
    QString key;
    QStringList arguments{};

    [[nodiscard]] bool isEmpty() const { return key.isEmpty(); }
    bool operator==(const UserMessage&) const = default;
};

} // namespace quillo
