#include "App/System/InstanceLock.h"

#include "Data/DataContainer.h"

#include <QDir>

namespace quillo {

InstanceLock::InstanceLock() {
    const auto folder = DataContainer::storeDirectory();
    QDir().mkpath(folder);
    m_lock = std::make_unique<QLockFile>(folder + QStringLiteral("/quillo.lock"));
    m_lock->setStaleLockTime(0); // the lock of a program that runs for weeks is not stale
}

bool InstanceLock::acquire() { return m_lock->tryLock(0) || m_lock->error() != QLockFile::LockFailedError; }

} // namespace quillo
