#pragma once

#include "Data/DataContainer.h"

#include <QLockFile>
#include <QStringList>

#include <memory>

namespace quillo {

/// Held while the program runs: two at once would take each other's running dictation for the leftovers of a crash.
/// The kernel gives it back when the process ends, however it ends.
class InstanceLock {
public:
    InstanceLock();
    /// False when another instance of this user runs. True also where no lock can be had (a read-only home): the bus
    /// name still tells.
    [[nodiscard]] bool acquire();

private:
    std::unique_ptr<QLockFile> m_lock;
};

/// Opens the history, or one in memory when that cannot be, and settles what a crash left in it. Tells the user what
/// was wrong. Null only when not even memory holds a store.
[[nodiscard]] std::unique_ptr<ModelContainer> openHistory(const QStringList& arguments);

} // namespace quillo
