#include "App/History/HistoryStartup.h"
#include "Support/LogLines.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

TEST(HistoryStartup, RecordingsRelyOnNoHistoryThatEndsWithTheProgram) {
    const LogLines log;
    const auto before = qgetenv("XDG_DATA_HOME");
    const QTemporaryDir home;
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.path()));
    EXPECT_TRUE(keptHistory(openHistory({}).get()));
    QFile file(home.filePath(u"file"_qs)); // no folder can be made below it
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    qputenv("XDG_DATA_HOME", QFile::encodeName(file.fileName()));
    const auto inMemory = openHistory({});
    EXPECT_TRUE(inMemory) << "for what the program shows until it ends";
    EXPECT_FALSE(keptHistory(inMemory.get()));
    EXPECT_FALSE(keptHistory(nullptr));
    qputenv("XDG_DATA_HOME", before);
}

} // namespace
} // namespace quillo::test
