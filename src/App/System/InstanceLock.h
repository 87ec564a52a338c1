#pragma once

#include <QLockFile>

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

} // namespace quillo
