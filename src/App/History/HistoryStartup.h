#pragma once

#include "Data/DataContainer.h"

#include <QStringList>

#include <memory>

namespace quillo {

/// Opens the history, or one in memory if that fails, and cleans up after a crash. Notifies the user of problems. Null
/// only when even a store in memory cannot be opened.
[[nodiscard]] std::unique_ptr<ModelContainer> openHistory(const QStringList& arguments);

/// The history that recordings may rely on: null for one in memory, which ends with the program. Without it their audio
/// waits on disk for the next start.
[[nodiscard]] ModelContext* keptHistory(const ModelContainer* container);

} // namespace quillo
