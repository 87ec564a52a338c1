#include "Platform/Linux/Wayland/DataControlPasteboard.h"
#include "Platform/PasteboardContract.h"
#include "Support/WaylandCompositor.h"

#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillo {
namespace {

using std::chrono::milliseconds;
using test::await;
using test::waitUntil;
using test::WaylandCompositor;

struct WlClipboard {
    static constexpr const char16_t* text = u"text/plain;charset=utf-8";

    WlClipboard() { qputenv("WAYLAND_DISPLAY", compositor.socket().toLocal8Bit()); }

    static std::unique_ptr<Pasteboard> create() { return createDataControlPasteboard(); }
    static std::unique_ptr<QProcess> launch(const QString& program, const QStringList& arguments) {
        auto process = std::make_unique<QProcess>();
        process->start(program, arguments);
        EXPECT_TRUE(process->waitForStarted()) << program.toStdString() << " (package wl-clipboard)";
        return process;
    }
    static QByteArray paste(const QStringList& arguments) {
        const auto reader = launch(u"wl-paste"_qs, QStringList{u"--no-newline"_qs} + arguments);
        EXPECT_TRUE(reader->waitForFinished(15000));
        return reader->readAllStandardOutput();
    }
    static std::unique_ptr<QProcess> launchOwner(const QString& type) {
        return launch(u"wl-copy"_qs, {u"--foreground"_qs, u"-t"_qs, type});
    }
    static QByteArray paste(const QString& type, bool primary) {
        return paste(QStringList{u"-t"_qs, type} + (primary ? QStringList{u"--primary"_qs} : QStringList()));
    }
    static QByteArray listTypes() { return paste({u"--list-types"_qs}); }

    WaylandCompositor compositor;
};

} // namespace

namespace test {
INSTANTIATE_TYPED_TEST_SUITE_P(Wayland, PasteboardContract, WlClipboard);
} // namespace test

namespace {

using WaylandPasteboardTest = test::PasteboardContract<WlClipboard>;

TEST_F(WaylandPasteboardTest, ReadersThatStallOrHangUpHarmNobody) {
    const auto offered = offer(QString(2000000, u'x'));
    // Stops when the buffers are full, because its output is not read.
    const QTemporaryDir folder;
    const auto output = folder.filePath(u"output"_qs);
    ASSERT_EQ(::mkfifo(output.toLocal8Bit().constData(), 0600), 0);
    const int end = ::open(output.toLocal8Bit().constData(), O_RDWR | O_CLOEXEC);
    QProcess stalled;
    stalled.setStandardOutputFile(output);
    stalled.start(u"wl-paste"_qs, {});
    int arrived = 0;
    EXPECT_TRUE(waitUntil([&] { return ::ioctl(end, FIONREAD, &arrived) == 0 && arrived > 0; }));
    const auto hungUp = WlClipboard::launch(u"sh"_qs, {u"-c"_qs, u"wl-paste | head -c 10"_qs});
    EXPECT_TRUE(hungUp->waitForFinished(15000));
    EXPECT_EQ(paste().size(), 2000000);
    EXPECT_TRUE(isRead(*offered, 5000));
    EXPECT_TRUE(m_pasteboard->isAvailable());
    EXPECT_TRUE(offered->isOwner());
    EXPECT_EQ(offered->reads(), 1) << "who takes half of the text has not read it";
    ::close(end);
    stalled.kill();
    stalled.waitForFinished();
}

TEST(WaylandPasteboardWithoutDataControl, SaysNotAvailable) {
    {
        const WaylandCompositor weston({.kind = WaylandCompositor::Kind::weston});
        qputenv("WAYLAND_DISPLAY", weston.socket().toLocal8Bit());
        EXPECT_EQ(createDataControlPasteboard(), nullptr);
    }
    qputenv("WAYLAND_DISPLAY", "/nowhere/wayland-0");
    EXPECT_EQ(createDataControlPasteboard(), nullptr);
}

TEST(WaylandPasteboardAfterACrash, LosesItsOfferAndSaysNotAvailable) {
    WaylandCompositor compositor;
    qputenv("WAYLAND_DISPLAY", compositor.socket().toLocal8Bit());
    const auto pasteboard = createDataControlPasteboard();
    ASSERT_TRUE(pasteboard);
    const auto offered = await(pasteboard->offerText(u"text"_qs, true, ClipboardUse::passing));
    ASSERT_TRUE(offered && offered->isOwner());
    compositor.kill();
    EXPECT_TRUE(waitUntil([&] { return !pasteboard->isAvailable(); }));
    EXPECT_FALSE(offered->isOwner());
    EXPECT_EQ(await(pasteboard->offerText(u"more"_qs, false, ClipboardUse::passing)), nullptr);
    EXPECT_TRUE(await(pasteboard->read(milliseconds(100))).isEmpty());
}

} // namespace
} // namespace quillo
