#include "Platform/Linux/X11/SelectionTargets.h"

#include <QSet>

namespace quillo {

SelectionFormats textFormats(const QString& text, bool isSecret) {
    const QByteArray utf8 = text.toUtf8();
    SelectionFormats formats{
        {QStringLiteral("UTF8_STRING"), utf8},
        {QStringLiteral("TEXT"), utf8},
        {QStringLiteral("text/plain;charset=utf-8"), utf8},
        {QStringLiteral("text/plain"), utf8},
    };
    if (isSecret)
        formats.emplace(privacyHint, "secret");
    // STRING is Latin-1 by definition; other characters are lost for a program that requests it.
    formats.emplace(QStringLiteral("STRING"), text.toLatin1());
    return formats;
}

bool isProtocolTarget(const QString& target) {
    static const QSet<QString> names{
        QStringLiteral("TARGETS"),         QStringLiteral("MULTIPLE"),      QStringLiteral("TIMESTAMP"),
        QStringLiteral("SAVE_TARGETS"),    QStringLiteral("DELETE"),        QStringLiteral("INSERT_SELECTION"),
        QStringLiteral("INSERT_PROPERTY"), QStringLiteral("CLIENT_WINDOW"), QStringLiteral("OWNER_OS"),
        QStringLiteral("HOST_NAME"),       QStringLiteral("USER"),          QStringLiteral("PROCESS"),
        QStringLiteral("_QT_SELECTION"),
    };
    return names.contains(target);
}

bool isTextTarget(const QString& target) {
    return target == u"UTF8_STRING" || target == u"STRING" || target == u"TEXT" || target == u"COMPOUND_TEXT" ||
           target.startsWith(u"text/");
}

QString typeOfTarget(const QString& target) {
    // TEXT leaves the encoding to the owner, and our text is UTF-8.
    return target == u"TEXT" ? QStringLiteral("UTF8_STRING") : target;
}

} // namespace quillo
