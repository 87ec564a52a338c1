#include "Features/Recording/RecordingEffect.h"

#include "Core/Overloaded.h"

namespace quillo {

EffectIdentity effectIdentity(const RecordingEffect& effect) {
    constexpr auto dictation = "dictation";
    return std::visit(
        Overloaded{
            [](const effect::BeginDictation&) {
                return EffectIdentity{.name = "begin dictation", .id = dictation, .cancelsInFlight = true};
            },
            [](const effect::EndDictation&) { return EffectIdentity{.name = "end dictation"}; },
            [](const effect::InterruptDictation&) { return EffectIdentity{.name = "interrupt dictation"}; },
            [](const effect::CancelDictation&) {
                return EffectIdentity{.name = "cancel dictation", .id = dictation, .cancelsInFlight = true};
            },
            [](const effect::LeaveDictation&) { return EffectIdentity{.name = "leave dictation"}; },
        },
        effect);
}

} // namespace quillo
