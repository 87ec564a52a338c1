#pragma once

#include "Architecture/SideEffect.h"

#include <QString>

#include <variant>

namespace quillo {

/// The work that an action leads to, named by the reducer.
namespace effect {
/// Open the microphone and a session: a dictation begins. The one before, if it is still being finished, goes on behind
/// it and shows nothing more through the state.
struct BeginDictation {};
/// The person has finished speaking.
struct EndDictation {};
/// The person wants nothing inserted.
struct CancelDictation {};
/// The state has left the dictation by the action named here. Where the dictation did not end itself, its microphone
/// must not stay open.
struct LeaveDictation {
    QString cause;
};
} // namespace effect

using RecordingEffect =
    std::variant<effect::BeginDictation, effect::EndDictation, effect::CancelDictation, effect::LeaveDictation>;

/// Beginning and cancelling cut off what the dictation before them still has to say: its late `RecordingCompleted` must
/// not end the next one.
[[nodiscard]] EffectIdentity effectIdentity(const RecordingEffect& effect);

} // namespace quillo
