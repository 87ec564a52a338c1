#include "FullDisk.h"

#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace quillo::test;

namespace {

class FullDiskTest : public testing::Test {
protected:
    /// Runs a shell command on the disk; returns its output.
    QString shell(const QString& command) {
        QProcess process;
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
        disk.apply(environment);
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setWorkingDirectory(folder.path());
        process.start(QStringLiteral("sh"), {QStringLiteral("-c"), command});
        EXPECT_TRUE(process.waitForFinished());
        return QString::fromUtf8(process.readAll()).trimmed();
    }
    qint64 size(const char* name) { return QFileInfo(folder.filePath(QString::fromLatin1(name))).size(); }

    QTemporaryDir folder;
    QTemporaryDir elsewhere;
    FullDisk disk{folder.path(), elsewhere.filePath(QStringLiteral("budget"))};
};

TEST_F(FullDiskTest, FilesGrowByTheBudgetAndThenNoMore) {
    const auto dd = QStringLiteral("dd if=/dev/zero of=%1 bs=1000 count=10 status=none %2");
    const auto full = QStringLiteral("No space left on device");
    const auto audio = folder.filePath(QStringLiteral("a.pcm"));
    EXPECT_EQ(shell(dd.arg(audio, QString())), QString());
    EXPECT_EQ(size("a.pcm"), 10'000);

    disk.fillUpTo(4'500);
    EXPECT_TRUE(shell(dd.arg(audio, QStringLiteral("oflag=append conv=notrunc"))).contains(full));
    EXPECT_EQ(size("a.pcm"), 14'500) << "the last write is short";
    EXPECT_GT(disk.budget().audioRefusedAt.load(), 0);
    EXPECT_EQ(shell(dd.arg(audio, QStringLiteral("conv=notrunc"))), QString()) << "in place there is space";
    EXPECT_TRUE(shell(dd.arg(audio, QStringLiteral("conv=notrunc,fdatasync"))).contains(full));
    EXPECT_TRUE(shell(dd.arg(folder.filePath(QStringLiteral("new")), QString())).contains(full));
    EXPECT_TRUE(shell(QStringLiteral("truncate -s 20000 a.pcm")).contains(full));
    EXPECT_EQ(shell(dd.arg(elsewhere.filePath(QStringLiteral("b.pcm")), QString())), QString()) << "another disk";
    EXPECT_EQ(shell(QStringLiteral("truncate -s 10000 a.pcm")), QString());

    disk.empty();
    EXPECT_EQ(shell(dd.arg(audio, QStringLiteral("oflag=append conv=notrunc,fdatasync"))), QString());
    EXPECT_EQ(size("a.pcm"), 20'000);
}

} // namespace
