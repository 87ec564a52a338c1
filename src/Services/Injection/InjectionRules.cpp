#include "Services/Injection/InjectionRules.h"

#include <QSet>

namespace quillo {
namespace {

// Programs in which Control-V has another meaning and Shift-Insert pastes. Some of them paste the primary selection, so
// the text is offered there too.
const QSet<QString>& shiftInsertApplications() {
    static const QSet<QString> names{
        QStringLiteral("xterm"),  QStringLiteral("uxterm"), QStringLiteral("urxvt"),       QStringLiteral("rxvt"),
        QStringLiteral("aterm"),  QStringLiteral("eterm"),  QStringLiteral("mlterm"),      QStringLiteral("st"),
        QStringLiteral("stterm"), QStringLiteral("mrxvt"),  QStringLiteral("st-256color"), QStringLiteral("emacs"),
        QStringLiteral("gvim"),
    };
    return names;
}

// "org.gnu.emacs" and "Emacs" are the same program.
bool isAmong(const QSet<QString>& names, const QString& identifier) {
    const QString lower = identifier.toLower();
    return names.contains(lower) || names.contains(lower.section(u'.', -1));
}

/// Scripts without spaces between words.
bool isOfUnpartedScript(char32_t character) {
    switch (QChar::script(character)) {
    case QChar::Script_Han:
    case QChar::Script_Hiragana:
    case QChar::Script_Katakana:
    case QChar::Script_Bopomofo:
    case QChar::Script_Yi:
    case QChar::Script_Thai:
    case QChar::Script_Lao:
    case QChar::Script_Khmer:
    case QChar::Script_Myanmar:
    case QChar::Script_Tibetan:
        return true;
    default:
        return false;
    }
}

} // namespace

PasteChord pasteChordFor(const std::optional<RunningApplication>& application) {
    if (!application)
        return PasteChord::controlV;
    if (isAmong(shiftInsertApplications(), application->bundleIdentifier) ||
        isAmong(shiftInsertApplications(), application->name))
        return PasteChord::shiftInsert;
    return application->isTerminal ? PasteChord::controlShiftV : PasteChord::controlV;
}

QString withoutControlCharacters(const QString& text) {
    QString result;
    result.reserve(text.size());
    for (qsizetype at = 0; at < text.size(); ++at) {
        const QChar character = text.at(at);
        if (character == u'\r') {
            if (at + 1 >= text.size() || text.at(at + 1) != u'\n')
                result += u'\n';
        } else if (character == QChar::LineSeparator || character == QChar::ParagraphSeparator) {
            result += u'\n';
        } else if (character == u'\n' || character == u'\t' || character.category() != QChar::Other_Control) {
            result += character;
        }
    }
    return result;
}

bool holdsKeysThatAct(const QString& text) { return text.contains(u'\n') || text.contains(u'\t'); }

QString textFor(const std::optional<RunningApplication>& application, QString text) {
    if (application && application->isTerminal) {
        while (text.endsWith(u'\n'))
            text.chop(1);
    }
    return text;
}

bool needsBlankBetween(QStringView before, QStringView text) {
    const auto previous = before.isEmpty() ? U' ' : before.toUcs4().constLast();
    const auto next = text.isEmpty() ? U' ' : text.toUcs4().constFirst();
    const auto isWord = [](char32_t character) {
        return QChar::isLetterOrNumber(character) && !isOfUnpartedScript(character);
    };
    static constexpr QStringView endMarks = u".,;:!?…%)]}\"'”’»€";
    return isWord(next) &&
           (isWord(previous) || (previous <= 0xffff && endMarks.contains(QChar(static_cast<char16_t>(previous)))));
}

bool isTextRole(const QString& role) {
    static const QSet<QString> roles{QStringLiteral("AXTextField"), QStringLiteral("AXTextArea"),
                                     QStringLiteral("AXComboBox")};
    return roles.contains(role);
}

bool isTextField(const FocusedElement& element) {
    static const QSet<QString> otherRoles{
        QStringLiteral("AXList"),       QStringLiteral("AXTable"),       QStringLiteral("AXOutline"),
        QStringLiteral("AXToolbar"),    QStringLiteral("AXMenuBar"),     QStringLiteral("AXMenu"),
        QStringLiteral("AXMenuItem"),   QStringLiteral("AXImage"),       QStringLiteral("AXButton"),
        QStringLiteral("AXCheckBox"),   QStringLiteral("AXRadioButton"), QStringLiteral("AXSlider"),
        QStringLiteral("AXStaticText"), QStringLiteral("AXScrollArea"),  QStringLiteral("AXSplitGroup"),
        QStringLiteral("AXTabGroup"),   QStringLiteral("AXBrowser")};
    if (isTextRole(element.role))
        return true;
    return !otherRoles.contains(element.role) && (element.isValueSettable || element.hasNumberOfCharacters);
}

} // namespace quillo
