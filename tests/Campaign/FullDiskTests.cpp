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
        environment.insert(u"LC_ALL"_qs, u"C"_qs);
        disk.apply(environment);
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setWorkingDirectory(folder.path());
        process.start(u"sh"_qs, {u"-c"_qs, command});
        EXPECT_TRUE(process.waitForFinished());
        return QString::fromUtf8(process.readAll()).trimmed();
    }
    qint64 size(const char* name) { return QFileInfo(folder.filePath(QString::fromLatin1(name))).size(); }

    QTemporaryDir folder;
    QTemporaryDir elsewhere;
    FullDisk disk{folder.path(), elsewhere.filePath(u"budget"_qs)};
};

TEST_F(FullDiskTest, FilesGrowByTheBudgetAndThenNoMore) {
    const auto dd = u"dd if=/dev/zero of=%1 bs=1000 count=10 status=none %2"_qs;
    const auto full = u"No space left on device"_qs;
    const auto audio = folder.filePath(u"a.pcm"_qs);
    EXPECT_EQ(shell(dd.arg(audio, QString())), QString());
    EXPECT_EQ(size("a.pcm"), 10'000);

    disk.fillUpTo(4'500);
    EXPECT_TRUE(shell(dd.arg(audio, u"oflag=append conv=notrunc"_qs)).contains(full));
    EXPECT_EQ(size("a.pcm"), 14'500) << "the last write is short";
    EXPECT_GT(disk.budget().audioRefusedAt.load(), 0);
    EXPECT_EQ(shell(dd.arg(audio, u"conv=notrunc"_qs)), QString()) << "in place there is space";
    EXPECT_TRUE(shell(dd.arg(audio, u"conv=notrunc,fdatasync"_qs)).contains(full));
    EXPECT_TRUE(shell(dd.arg(folder.filePath(u"new"_qs), QString())).contains(full));
    EXPECT_TRUE(shell(u"truncate -s 20000 a.pcm"_qs).contains(full));
    EXPECT_EQ(shell(dd.arg(elsewhere.filePath(u"b.pcm"_qs), QString())), QString()) << "another disk";
    EXPECT_EQ(shell(u"truncate -s 10000 a.pcm"_qs), QString());

    disk.empty();
    EXPECT_EQ(shell(dd.arg(audio, u"oflag=append conv=notrunc,fdatasync"_qs)), QString());
    EXPECT_EQ(size("a.pcm"), 20'000);
}

} // namespace
