#pragma once

#include "Data/DataContainer.h"

#include <QLockFile>
#include <QStringList>

#include <memory>

namespace quillo {

/// The lock of the single instance, held while the program runs: a second instance would treat the first one's running
/// dictation as the leftovers of a crash. The kernel releases it at any end of the process.
class InstanceLock {
public:
    InstanceLock();
    /// False when another instance of this user runs. True also where no lock is possible (a read-only home); there the
    /// bus name decides.
    [[nodiscard]] bool acquire();

private:
    std::unique_ptr<QLockFile> m_lock;
};

/// Opens the history, or one in memory if that fails, and cleans up after a crash. Notifies the user of problems. Null
/// only when even a store in memory cannot be opened.
[[nodiscard]] std::unique_ptr<ModelContainer> openHistory(const QStringList& arguments);

} // namespace quillo
