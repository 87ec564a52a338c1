#include "Services/Settings/SettingsSchema.h"

#include "Core/SupportedLanguages.h"
#include "Platform/KeyEvents.h"
#include "Services/Settings/KeyCodeLabels.h"
#include "Services/Settings/KeyNames.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <limits>

namespace quillo {
namespace {

using Type = Setting::Type;
using Scope = Setting::Scope;

QStringList languageChoices(const QString& first) {
    QStringList codes{first};
    for (const auto& language : SupportedLanguages::all())
        codes << language.code;
    return codes;
}

Setting text(QString key, const QVariant& defaultValue, QString description, QStringList choices = {}) {
    return {.key = std::move(key),
            .type = Type::string,
            .defaultValue = defaultValue,
            .description = std::move(description),
            .choices = std::move(choices)};
}

Setting boolean(QString key, bool defaultValue, QString description) {
    return {.key = std::move(key),
            .type = Type::boolean,
            .defaultValue = defaultValue,
            .description = std::move(description),
            .choices = {}};
}

Setting number(Type type, QString key, const QVariant& defaultValue, QString description, double minimum,
               double maximum) {
    return {.key = std::move(key),
            .type = type,
            .defaultValue = defaultValue,
            .description = std::move(description),
            .choices = {},
            .minimum = minimum,
            .maximum = maximum};
}

Setting global(Setting setting) {
    setting.scope = Scope::global;
    return setting;
}

Setting key(const char* name, int defaultValue, QString description, const char* modifiersKey) {
    auto setting =
        global(number(Type::integer, QString::fromLatin1(name), defaultValue, std::move(description), 0, 65535));
    setting.notation = Setting::Notation::key;
    setting.modifiersKey = QString::fromLatin1(modifiersKey);
    return setting;
}

Setting modifiers(const char* name, int defaultValue, QString description) {
    auto setting = global(number(Type::integer, QString::fromLatin1(name), defaultValue, std::move(description), 0,
                                 std::numeric_limits<int>::max()));
    setting.notation = Setting::Notation::modifiers;
    return setting;
}

Setting internal(Setting setting) {
    setting.isInternal = true;
    return setting;
}

std::vector<Setting> makeSchema() {
    const auto s = [](const char* utf8) { return QString::fromUtf8(utf8); };
    constexpr double anywhere = 1e6; // pixels: no desktop is larger
    return {
        text(s("primaryLanguage"), {}, s("Dictation language: a code such as \"en\", or \"auto\""),
             languageChoices(SupportedLanguages::automatic)),
        text(s("secondaryLanguage"), s("none"), s("Second dictation language, or \"none\""),
             languageChoices(s("none"))),
        text(s("insertionMode"), s("paste"), s("How text is inserted: pasted, or typed key by key"),
             {s("paste"), s("type")}),
        boolean(s("restoreClipboard"), true, s("Restore the clipboard after pasting")),
        boolean(s("smartSpacing"), true, s("Put a space between two dictations into one field")),
        text(s("selectedMicrophoneId"), {}, s("Microphone to record; empty for the system default")),
        boolean(s("playSound"), true, s("Play a sound when a recording starts and stops")),
        boolean(s("showFloatingPill"), true, s("Show the floating pill")),
        boolean(s("cancelRecordingOnEscape"), false, s("Escape cancels a running recording")),
        boolean(s("launchAtLogin"), false, s("Start Quillo at login")),
        boolean(s("smartModeEnabled"), false, s("Smart mode")),
        boolean(s("enhancedTranscriptionEnabled"), false, s("Let the server clean the text up")),
        text(s("meetingModePreference"), s("manual"), s("Meeting mode: never, when asked for, or on detection"),
             {s("off"), s("manual"), s("auto")}),
        boolean(s("useDemoMode"), false, s("Dictate demonstration texts without a server")),
        // Key codes and modifier bits are numbers that earlier versions stored; see docs/compatibility.md.
        key("hotkeyKeyCode", keycode::rightCommand, s("Push-to-talk key, such as \"Right Ctrl\" or \"F9\""),
            "hotkeyModifiers"),
        modifiers("hotkeyModifiers", 0, s("Modifiers held with it, such as \"Ctrl+Alt\", or \"none\"")),
        key("toggleHotkeyKeyCode", keycode::space, s("Toggle hotkey, such as \"Ctrl+Alt+Space\""),
            "toggleHotkeyModifiers"),
        modifiers("toggleHotkeyModifiers", static_cast<int>(keyflag::option), s("Modifiers held with it")),
        global(number(Type::number, s("doubleTapInterval"), 0.3,
                      s("Longest gap of a double tap, in seconds; zero means 0.3"), 0, 5)),
        global(number(Type::integer, s("audioStorageLimitMB"), 4096, s("Most disk space for kept audio, in megabytes"),
                      1, std::numeric_limits<int>::max())),
        global(text(s("quillo-interface-locale"), {}, s("Language of the interface; empty for the system's"),
                    {s("en"), s("de"), s("es"), s("fr"), s("ru"), s("zh")})),
        boolean(s("keepAudio"), true, s("Keep the audio of finished dictations, for playback and for another try")),
        internal(number(Type::integer, s("totalRecordingsCount"), 0, s("Dictations so far"), 0,
                        std::numeric_limits<int>::max())),
        internal(text(s("mismatchPeriodStartDate"), {}, s("Since when dictations in other languages are counted"))),
        internal(number(Type::integer, s("mismatchCountInPeriod"), 0, s("Dictations in other languages since then"), 0,
                        std::numeric_limits<int>::max())),
        internal(boolean(s("languageChosen"), false, s("The user has chosen a dictation language"))),
        internal(boolean(s("onboardingCompleted"), false, s("Onboarding is finished"))),
        internal(number(Type::number, s("pillPositionX"), {}, s("Last position of the pill"), -anywhere, anywhere)),
        internal(number(Type::number, s("pillPositionY"), {}, s("Last position of the pill"), -anywhere, anywhere)),
        internal(text(s("enhancedConsentVersion"), {}, s("Accepted consent text for enhanced transcription"))),
        internal(text(s("enhancedConsentTimestamp"), {}, s("When it was accepted"))),
        internal(text(s("syncConsentVersion"), {}, s("Accepted consent text for history sync"))),
        internal(text(s("syncConsentTimestamp"), {}, s("When it was accepted"))),
        internal({.key = s("meetingDetectionHistory"),
                  .type = Type::decisions,
                  .defaultValue = QVariantMap(),
                  .description = s("The last answer to the meeting prompt by application"),
                  .choices = {}}),
        internal(boolean(s("migration.langExplicit.v1"), false, s("The language migration has run"))),
    };
}

SettingsError invalidValue(const Setting& setting, const QString& given, const QString& expected) {
    return SettingsError(
        QStringLiteral("\"%1\" is not a valid value for %2: expected %3").arg(given, setting.key, expected));
}

QVariant parseInteger(const QString& text) {
    bool ok = false;
    const auto value = text.trimmed().toLongLong(&ok, text.contains(u'x', Qt::CaseInsensitive) ? 16 : 10);
    return ok ? QVariant(value) : QVariant();
}

/// "54" from "54 (Right Super)", the printed form of key numbers.
QString withoutName(const Setting& setting, const QString& text) {
    return setting.notation == Setting::Notation::plain ? text : text.section(u'(', 0, 0).trimmed();
}

QVariant parseNumber(const Setting& setting, const QString& text, const QString& otherwise = {}) {
    const bool isInteger = setting.type == Type::integer;
    bool ok = false;
    const QVariant value =
        isInteger ? parseInteger(withoutName(setting, text)) : QVariant(text.trimmed().toDouble(&ok));
    const double magnitude = value.toDouble();
    if ((isInteger ? value.isValid() : ok && std::isfinite(magnitude)) && magnitude >= setting.minimum &&
        magnitude <= setting.maximum)
        return isInteger ? QVariant(value.toInt()) : value;
    throw invalidValue(setting, text,
                       (otherwise.isEmpty() ? QString() : otherwise + u' ') +
                           QStringLiteral("a%1 number from %2 to %3")
                               .arg(isInteger ? QStringLiteral(" whole") : QString())
                               .arg(setting.minimum, 0, 'g', 10)
                               .arg(setting.maximum, 0, 'g', 10));
}

QVariant parseBoolean(const Setting& setting, const QString& text) {
    static const QStringList yes{QStringLiteral("true"), QStringLiteral("yes"), QStringLiteral("on"),
                                 QStringLiteral("1")};
    static const QStringList no{QStringLiteral("false"), QStringLiteral("no"), QStringLiteral("off"),
                                QStringLiteral("0")};
    const QString word = text.trimmed().toLower();
    if (yes.contains(word))
        return true;
    if (no.contains(word))
        return false;
    throw invalidValue(setting, text, QStringLiteral("true or false"));
}

QVariant parseDecisions(const Setting& setting, const QString& text) {
    const auto document = QJsonDocument::fromJson(text.toUtf8());
    if (!document.isObject())
        throw invalidValue(setting, text, QStringLiteral("a JSON object of true and false"));
    QVariantMap decisions;
    const auto object = document.object();
    for (auto entry = object.begin(); entry != object.end(); ++entry)
        if (entry.value().isBool())
            decisions.insert(entry.key(), entry.value().toBool());
    return decisions;
}

} // namespace

const std::vector<Setting>& settingsSchema() {
    static const auto schema = makeSchema();
    return schema;
}

const Setting* findSetting(const QString& key) {
    const auto& schema = settingsSchema();
    const auto found = std::find_if(schema.begin(), schema.end(), [&](const auto& entry) { return entry.key == key; });
    return found != schema.end() ? &*found : nullptr;
}

const Setting& settingForKey(const QString& key) {
    if (const auto* setting = findSetting(key))
        return *setting;
    QStringList similar;
    for (const auto& setting : settingsSchema())
        if (!setting.isInternal && (setting.key.contains(key, Qt::CaseInsensitive) ||
                                    setting.key.left(4).compare(key.left(4), Qt::CaseInsensitive) == 0))
            similar << setting.key;
    throw SettingsError(QStringLiteral("There is no setting \"%1\". ").arg(key) +
                        (similar.isEmpty() || key.isEmpty()
                             ? QStringLiteral("\"quillo settings list\" shows all of them")
                             : QStringLiteral("Did you mean %1?").arg(similar.join(QStringLiteral(" or ")))));
}

QVariant parseSettingValue(const Setting& setting, const QString& text) {
    if (text.isEmpty() && !setting.defaultValue.isValid())
        return {};
    switch (setting.type) {
    case Type::boolean:
        return parseBoolean(setting, text);
    case Type::integer:
    case Type::number:
        return parseNumber(setting, text);
    case Type::decisions:
        return parseDecisions(setting, text);
    case Type::string:
        break;
    }
    if (!setting.choices.isEmpty() && !setting.choices.contains(text))
        throw invalidValue(setting, text, QStringLiteral("one of ") + setting.choices.join(QStringLiteral(", ")));
    return text;
}

std::vector<std::pair<QString, QVariant>> parseSettingInput(const Setting& setting, const QString& text) {
    if (setting.notation == Setting::Notation::plain)
        return {{setting.key, parseSettingValue(setting, text)}};
    if (parseInteger(withoutName(setting, text)).isValid())
        return {{setting.key, parseNumber(setting, text)}};
    if (setting.notation == Setting::Notation::modifiers) {
        if (const auto mask = keyNames::parseModifiers(text))
            return {{setting.key, static_cast<int>(*mask)}};
        return {
            {setting.key, parseNumber(setting, text, QStringLiteral("modifiers such as \"Ctrl+Alt\", \"none\", or"))}};
    }
    if (const auto combination = keyNames::parse(text))
        return {{setting.modifiersKey, static_cast<int>(combination->modifiers)},
                {setting.key, static_cast<int>(combination->keyCode)}};
    return {{setting.key,
             parseNumber(setting, text, QStringLiteral("a key such as \"Right Ctrl\" or \"Ctrl+Alt+Space\", or"))}};
}

QString settingForStorage(const Setting& setting, const QVariant& value) {
    if (setting.type == Type::boolean)
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    if (setting.type == Type::decisions)
        return QString::fromUtf8(
            QJsonDocument(QJsonObject::fromVariantMap(value.toMap())).toJson(QJsonDocument::Compact));
    return value.toString();
}

QString printSettingValue(const Setting& setting, const QVariant& value) {
    if (!value.isValid())
        return {};
    if (setting.notation == Setting::Notation::key)
        return QStringLiteral("%1 (%2)").arg(value.toString(), keyCodeToString(static_cast<uint16_t>(value.toUInt())));
    if (setting.notation == Setting::Notation::modifiers)
        return QStringLiteral("%1 (%2)").arg(value.toString(), keyNames::modifiersToString(value.toULongLong()));
    return settingForStorage(setting, value);
}

QVariant storedSettingValue(const Setting& setting, const QVariant& stored) {
    if (!stored.isValid())
        return {};
    try {
        return parseSettingValue(setting, stored.toString());
    } catch (const SettingsError&) {
        return {};
    }
}

} // namespace quillo
