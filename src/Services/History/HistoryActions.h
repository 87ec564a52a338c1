#pragma once

#include "Data/ModelContext.h"
#include "Platform/AudioPlayback.h"
#include "Services/History/HistoryError.h"

#include <stop_token>

namespace quillo {

class PendingTranscriptionManager;

/// The user's actions on history records. For lists and searches use `ModelContext::summaries`. Each function throws
/// HistoryError, and StoreError when the file fails. Main thread.
namespace historyActions {

/// The record whose id begins with `beginning`.
[[nodiscard]] RecordPointer recordBeginningWith(ModelContext& history, const QString& beginning);
/// The record with this id, if no dictation or transcription is running for it.
[[nodiscard]] RecordPointer idleRecord(ModelContext& history, const QString& id);
/// Deletes the record, and its audio unless another record uses it.
void remove(ModelContext& history, const QString& id);
/// Puts the record's audio back into the queue. An empty language means the one it was recorded with. `queue` is null
/// while the program is starting.
void retranscribe(ModelContext& history, PendingTranscriptionManager* queue, const QString& id,
                  const QString& language);
/// Plays the kept audio; blocks like `AudioPlayback::play`. Also throws AudioPlaybackError.
void play(const TranscriptionRecord& record, AudioPlayback& playback, std::stop_token stop = {});

} // namespace historyActions

} // namespace quillo
