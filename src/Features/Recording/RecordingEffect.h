#pragma once

#include "Architecture/SideEffect.h"
#include "Concurrency/Clock.h"

#include <QString>

#include <optional>
#include <variant>

namespace quillo {

/// The work that follows from an action, chosen by the reducer.
namespace effect {
/// A dictation begins: open the microphone and a session. A previous one that is still finishing continues in the
/// background and no longer changes the state.
struct BeginDictation {
    std::optional<Clock::Instant> askedAt = {}; ///< see `action::StartRecording`
};
/// The user has finished speaking.
struct EndDictation {};
/// The user has left the desktop: end the dictation, and insert the text of none that has not ended.
struct InterruptDictation {};
/// The user cancelled; insert nothing.
struct CancelDictation {};
/// The action in `cause` has moved the state away from the dictation. If the dictation has not ended, close its
/// microphone.
struct LeaveDictation {
    QString cause;
};
} // namespace effect

using RecordingEffect = std::variant<effect::BeginDictation, effect::EndDictation, effect::InterruptDictation,
                                     effect::CancelDictation, effect::LeaveDictation>;

namespace effect {
/// Beginning and cancelling mute the actions of the previous dictation: its late `RecordingCompleted` must not end the
/// next one. In this namespace, because the store finds it by the variant's alternatives.
[[nodiscard]] EffectIdentity effectIdentity(const RecordingEffect& effect);
} // namespace effect

} // namespace quillo
