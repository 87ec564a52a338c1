#include "Features/Recording/RecordingEffect.h"

#include "Core/Overloaded.h"

namespace quillo::effect {

EffectIdentity effectIdentity(const RecordingEffect& effect) {
    constexpr auto dictation = "dictation";
    return std::visit(
        Overloaded{
            [](const BeginDictation&) {
                return EffectIdentity{.name = "begin dictation", .id = dictation, .cancelsInFlight = true};
            },
            [](const EndDictation&) { return EffectIdentity{.name = "end dictation"}; },
            [](const InterruptDictation&) { return EffectIdentity{.name = "interrupt dictation"}; },
            [](const CancelDictation&) {
                return EffectIdentity{.name = "cancel dictation", .id = dictation, .cancelsInFlight = true};
            },
            [](const LeaveDictation&) { return EffectIdentity{.name = "leave dictation"}; },
        },
        effect);
}

} // namespace quillo::effect
