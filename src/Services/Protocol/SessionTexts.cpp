#include "Services/Protocol/SessionTexts.h"

namespace quillo {

QString SessionTexts::bestAvailableText() const {
    for (const auto* text : {&accumulatedText, &plainTextForInjection, &lastPartialText})
        if (!text->isEmpty())
            return *text;
    return savedTextFromDisconnect;
}

QString SessionTexts::textForInjection() const {
    return plainTextForInjection.isEmpty() ? bestAvailableText() : plainTextForInjection;
}

} // namespace quillo
