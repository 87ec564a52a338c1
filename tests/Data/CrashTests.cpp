#include "StoreFixture.h"
#include "Support/ChildProcess.h"

#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillo::test {
namespace {

class Crash : public StoreFixture {
protected:
    /// Lets a writer save until it has said so `saves` times, and kills it at once: most often inside the next save.
    /// Returns how often it said so.
    int64_t writeAndKill(int saves) {
        const auto pipe = folder.filePath(u"saves"_qs);
        ::mkfifo(QFile::encodeName(pipe).constData(), 0600);
        const int descriptor = ::open(QFile::encodeName(pipe).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        int64_t said = 0;
        {
            ChildProcess writer(QStringLiteral(QUILLO_STORE_WRITER), {}, pipe);
            while (said < saves) {
                pollfd ready{descriptor, POLLIN, 0};
                constexpr int watchdogMs = 60'000;
                if (::poll(&ready, 1, watchdogMs) != 1)
                    break;
                said += read(descriptor);
            }
            writer.signal(SIGKILL);
        }
        said += read(descriptor);
        ::close(descriptor);
        return said;
    }

private:
    static int64_t read(int descriptor) {
        char buffer[4096];
        return std::max<ssize_t>(0, ::read(descriptor, buffer, sizeof buffer));
    }
};

TEST_F(Crash, LosesNothingThatWasSaved) {
    int64_t saved = 0;
    for (const int saves : {1, 2, 3, 5, 8, 40, 1}) {
        const auto said = writeAndKill(saves);
        ASSERT_GE(said, saves);
        auto& context = open();
        EXPECT_FALSE(container->setAside());
        const auto records = context.count();
        EXPECT_EQ(records % 20, 0) << "a save is in the file by half";
        EXPECT_GE(records / 20, saved + said);
        saved = records / 20;
        EXPECT_EQ(context.count(searchFor(u"batch %1 index"_qs.arg(saved - 1))), 20);
        EXPECT_EQ(context.count(searchFor(u"batch"_qs)), records) << "the index does not know every record";
        container.reset();
    }
}

} // namespace
} // namespace quillo::test
