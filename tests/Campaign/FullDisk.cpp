#include "FullDisk.h"

#include <QFileInfo>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <new>
#include <stdexcept>

namespace quillo::test {

FullDisk::FullDisk(const QString& folder, const QString& pageFile)
    : m_folder(QFileInfo(folder).canonicalFilePath()), m_pageFile(pageFile) {
    const int file = ::open(pageFile.toLocal8Bit().constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* page = MAP_FAILED;
    if (file >= 0 && ::ftruncate(file, sizeof(DiskBudget)) == 0)
        page = ::mmap(nullptr, sizeof(DiskBudget), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (file >= 0)
        ::close(file);
    if (page == MAP_FAILED || m_folder.isEmpty())
        throw std::runtime_error("no page to share for the full disk in " + pageFile.toStdString());
    m_budget = new (page) DiskBudget;
}

FullDisk::~FullDisk() { ::munmap(m_budget, sizeof(DiskBudget)); }

void FullDisk::apply(QProcessEnvironment& environment) const {
    auto preloaded = environment.value(u"LD_PRELOAD"_qs);
    if (!preloaded.isEmpty())
        preloaded += u':';
    environment.insert(u"LD_PRELOAD"_qs, preloaded + QStringLiteral(QUILLO_FULL_DISK_PRELOAD));
    environment.insert(QString::fromLatin1(diskBudgetFile), m_pageFile);
    environment.insert(QString::fromLatin1(diskBudgetFolder), m_folder);
}

void FullDisk::fillUpTo(int64_t bytes) {
    m_budget->refusals = 0;
    m_budget->audioRefusedAt = 0;
    m_budget->remaining = bytes;
}

void FullDisk::empty() { m_budget->remaining = -1; }

} // namespace quillo::test
