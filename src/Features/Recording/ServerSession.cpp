#include "Features/Recording/ServerSession.h"

namespace quillo {

namespace {

QString join(const QString& first, const QString& second) {
    if (first.isEmpty() || second.isEmpty())
        return first + second;
    const bool needsBlank = !first.back().isSpace() && !second.front().isSpace();
    return needsBlank ? first + QLatin1Char(' ') + second : first + second;
}

} // namespace

SessionText SessionText::joined(const SessionText& next) const {
    SessionText both{join(text, next.text), {}};
    if (!original.isEmpty() || !next.original.isEmpty())
        both.original = join(original.isEmpty() ? text : original, next.original.isEmpty() ? next.text : next.original);
    return both;
}

SessionText ServerSession::bestText(const SessionTexts& texts) const {
    if (ended) {
        const auto original = ended->commandApplied   ? texts.originalTextBeforeCommand
                              : ended->cleanupApplied ? texts.rawTextBeforeCleanup
                                                      : QString();
        return {ended->text.isEmpty() ? texts.textForInjection() : ended->text, original};
    }
    if (command && !command->processedText.isEmpty())
        return {command->processedText, command->originalText};
    return {texts.bestAvailableText(), {}};
}

} // namespace quillo
