#pragma once

#include "Data/Database.h"

#include <QString>

#include <memory>
#include <optional>

namespace quillo::storeFile {

struct Opened {
    std::unique_ptr<Database> database;
    QString setAsideAs;     ///< full path; empty when nothing was set aside
    QString setAsideReason; ///< a sentence for the user
};

/// The folder, made if needed and readable by its owner alone. Throws StoreError.
void makeFolder(const QString& path);
/// Copies the legacy store and its companions to `path` when there is none yet and it holds our records. Never fails:
/// what was copied in part is removed again.
void migrateLegacy(const QString& legacyPath, const QString& path);
/// Opens or makes the store and brings it up to date. A file that is damaged, or that only a later version can read,
/// is renamed with its companions to "<path>.damaged-<UTC time>" or "<path>.newer-<UTC time>". Throws StoreError.
Opened open(const QString& path);

} // namespace quillo::storeFile
