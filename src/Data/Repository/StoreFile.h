#pragma once

#include "Data/Storage/Database.h"
#include "Data/Storage/StoreError.h"

#include <QString>

#include <memory>
#include <optional>

namespace quillo::storeFile {

struct Opened {
    std::unique_ptr<Database> database;
    QString setAsideAs;                                           ///< full path; empty when nothing was set aside
    StoreError::Cause setAsideCause = StoreError::Cause::damaged; ///< or newer
};

/// The folder, created if needed, readable only by its owner. Throws StoreError.
void makeFolder(const QString& path);
/// Copies the legacy store and its log files to `path` if that does not exist yet and the legacy store contains our
/// records. Never fails: removes an incomplete copy.
void migrateLegacy(const QString& legacyPath, const QString& path);
/// Opens or creates the store and upgrades it. A damaged file, or one that only a later version can read, is renamed
/// with its log files to "<path>.damaged-<UTC time>" or "<path>.newer-<UTC time>". Throws StoreError.
Opened open(const QString& path);

} // namespace quillo::storeFile
