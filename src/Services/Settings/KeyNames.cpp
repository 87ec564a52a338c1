#include "Services/Settings/KeyNames.h"

#include "Services/Settings/KeyCodeLabels.h"

#include <array>

namespace quillo::keyNames {
namespace {

struct Modifier {
    uint64_t mask;
    const char* label; ///< English
    const char* text;  ///< key of the catalogue text
    const char* alias; ///< another common name
};

/// In the order in which they are written.
constexpr std::array modifiers{
    Modifier{keyflag::control, "Ctrl", "key.ctrl", "Control"},
    Modifier{keyflag::option, "Alt", "key.alt", "Option"},
    Modifier{keyflag::shift, "Shift", "key.shift", "Shift"},
    Modifier{keyflag::command, "Super", "key.super", "Meta"},
};

bool isSame(const QString& text, const QString& name) { return text.compare(name, Qt::CaseInsensitive) == 0; }

QString nameOf(const KeyLabel& key, const LocalizationManager& texts) {
    const auto label = QString::fromLatin1(key.label);
    // A text with a placeholder is that of the number pad, whose keys differ only in the sign.
    return key.text ? texts.t(QString::fromLatin1(key.text), {label.last(1)}) : label;
}

QString nameOf(uint16_t keyCode, const LocalizationManager& texts) {
    for (const auto& key : keyLabels())
        if (key.keyCode == keyCode)
            return nameOf(key, texts);
    return texts.t(QStringLiteral("key.numbered"), {QString::number(keyCode)});
}

std::optional<uint64_t> modifierNamed(const QString& name, const LocalizationManager& texts) {
    for (const auto& modifier : modifiers)
        for (const auto& known : {QString::fromLatin1(modifier.label), QString::fromLatin1(modifier.alias),
                                  texts.t(QString::fromLatin1(modifier.text))})
            if (isSame(name, known))
                return modifier.mask;
    return std::nullopt;
}

std::optional<uint16_t> keyNamed(const QString& name, const LocalizationManager& texts) {
    for (const auto& key : keyLabels())
        if (isSame(name, QString::fromLatin1(key.label)) || isSame(name, nameOf(key, texts)))
            return key.keyCode;
    return std::nullopt;
}

} // namespace

QString of(const KeyCombination& combination, const LocalizationManager& texts) {
    QString name;
    for (const auto& modifier : modifiers)
        if (combination.modifiers & modifier.mask)
            name += texts.t(QString::fromLatin1(modifier.text)) + u'+';
    return name + nameOf(combination.keyCode, texts);
}

std::optional<KeyCombination> parse(const QString& text, const LocalizationManager& texts) {
    KeyCombination combination{};
    auto rest = text.simplified();
    // Parse from the front, because the key itself may be called "Keypad +".
    while (!rest.isEmpty()) {
        if (const auto key = keyNamed(rest, texts)) {
            combination.keyCode = *key;
            return combination;
        }
        const auto plus = rest.indexOf(u'+');
        const auto modifier = plus > 0 ? modifierNamed(rest.left(plus).trimmed(), texts) : std::nullopt;
        if (!modifier)
            return std::nullopt;
        combination.modifiers |= *modifier;
        rest = rest.mid(plus + 1).trimmed();
    }
    return std::nullopt;
}

std::optional<uint64_t> parseModifiers(const QString& text, const LocalizationManager& texts) {
    uint64_t mask = 0;
    const auto words = text.simplified();
    if (isSame(words, QStringLiteral("none")))
        return mask;
    for (const auto& word : words.split(u'+')) {
        const auto modifier = modifierNamed(word.trimmed(), texts);
        if (!modifier)
            return std::nullopt;
        mask |= *modifier;
    }
    return mask;
}

QString modifiersToString(uint64_t mask) {
    QStringList names;
    for (const auto& modifier : modifiers)
        if (mask & modifier.mask)
            names << QString::fromLatin1(modifier.label);
    return names.isEmpty() ? QStringLiteral("none") : names.join(u'+');
}

} // namespace quillo::keyNames
