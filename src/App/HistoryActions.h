#pragma once

#include "Data/ModelContext.h"
#include "Services/Queue/PendingTranscriptionManager.h"

#include <QString>

namespace quillo {

/// What the command line may ask of the running program's history. Each throws a std::runtime_error whose text tells
/// the user why it was refused. Main thread.
namespace historyActions {

/// The record of that id, which nobody works on.
[[nodiscard]] RecordPointer recordFor(ModelContext& history, const QString& id);
/// Deletes the record, and its audio unless another record has it too.
void remove(ModelContext& history, const QString& id);
/// Puts the record's audio back into the queue. `queue` is null while the program is starting.
void retranscribe(ModelContext& history, PendingTranscriptionManager* queue, const QString& id,
                  const QString& language);

} // namespace historyActions

} // namespace quillo
