#pragma once

#include "DiskBudget.h"

#include <QProcessEnvironment>
#include <QString>

namespace quillo::test {

/// A disk that a test fills and empties again, for the programs it starts with `environment`; see FullDiskPreload.cpp.
class FullDisk {
public:
    /// `folder` acts as the disk; `pageFile` is created. Throws std::runtime_error.
    FullDisk(const QString& folder, const QString& pageFile);
    ~FullDisk();
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

    /// Adds the variables that make a program use this disk.
    void apply(QProcessEnvironment& environment) const;

    /// From now on all files together may grow by `bytes`.
    void fillUpTo(int64_t bytes);
    void empty();
    [[nodiscard]] const DiskBudget& budget() const { return *m_budget; }

private:
    QString m_folder;
    QString m_pageFile;
    DiskBudget* m_budget;
};

} // namespace quillo::test
