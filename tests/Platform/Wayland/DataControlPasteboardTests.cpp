#include "Platform/Linux/Wayland/DataControlPasteboard.h"
#include "Support/Async.h"
#include "Support/WaylandCompositor.h"

#include <gmock/gmock.h>

#include <QTemporaryDir>

#include <csignal>

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

const QString plainText = QStringLiteral("text/plain;charset=utf-8");

class WaylandPasteboardTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_compositor = std::make_unique<WaylandCompositor>();
        qputenv("WAYLAND_DISPLAY", s_compositor->socket().toLocal8Bit());
    }
    static void TearDownTestSuite() { s_compositor.reset(); }

    void SetUp() override {
        m_pasteboard = createDataControlPasteboard();
        ASSERT_TRUE(m_pasteboard && m_pasteboard->isAvailable());
    }

    static std::unique_ptr<QProcess> launch(const QString& program, const QStringList& arguments) {
        auto process = std::make_unique<QProcess>();
        process->start(program, arguments);
        EXPECT_TRUE(process->waitForStarted()) << program.toStdString() << " (package wl-clipboard)";
        return process;
    }

    /// Another program that owns the clipboard until it loses it.
    std::unique_ptr<QProcess> copy(const QByteArray& content, const QString& type = plainText) {
        auto owner = launch(QStringLiteral("wl-copy"), {QStringLiteral("--foreground"), QStringLiteral("-t"), type});
        owner->write(content);
        owner->closeWriteChannel();
        EXPECT_TRUE(waitUntil([&] { return await(m_pasteboard->read(milliseconds(2000))).formats[type] == content; }));
        return owner;
    }

    /// What another program gets; the event loop is not needed, for the owner has a thread of its own.
    static QByteArray paste(const QStringList& arguments = {}) {
        const auto reader = launch(QStringLiteral("wl-paste"), QStringList{QStringLiteral("--no-newline")} + arguments);
        EXPECT_TRUE(reader->waitForFinished(15000));
        return reader->readAllStandardOutput();
    }

    std::shared_ptr<PasteboardOffer> offer(const QString& text, bool alsoPrimary = false) {
        return await(m_pasteboard->offerText(text, alsoPrimary));
    }

    static std::unique_ptr<WaylandCompositor> s_compositor;
    std::unique_ptr<Pasteboard> m_pasteboard;
};

std::unique_ptr<WaylandCompositor> WaylandPasteboardTest::s_compositor;

TEST_F(WaylandPasteboardTest, ServesTextInEveryFormAndCountsReads) {
    const auto offered = offer(QStringLiteral("naïve 日本語 😀\nline"), true);
    ASSERT_TRUE(offered && offered->isOwner());
    EXPECT_TRUE(paste({QStringLiteral("--list-types")}).contains("text/plain;charset=utf-8"));
    EXPECT_EQ(offered->reads(), 0) << "asking for the formats is no read";
    EXPECT_FALSE(await(offered->waitUntilRead(milliseconds(1))));
    EXPECT_FALSE(offered->lastRead());

    const QByteArray text = "naïve 日本語 😀\nline";
    int reads = 0;
    for (const auto* type : {"text/plain", "text/plain;charset=utf-8", "UTF8_STRING", "TEXT"}) {
        EXPECT_EQ(paste({QStringLiteral("-t"), QString::fromLatin1(type)}), text) << type;
        EXPECT_TRUE(waitUntil([&] { return offered->reads() == reads + 1; })) << type;
        ++reads;
    }
    EXPECT_EQ(paste({QStringLiteral("--primary")}), text);
    EXPECT_TRUE(await(offered->waitUntilRead(milliseconds(1))));
    EXPECT_TRUE(offered->lastRead());
}

TEST_F(WaylandPasteboardTest, LargeContentGoesBothWays) {
    QString text;
    while (text.size() < 1500000)
        text += QStringLiteral("größer 日本 😀 ") + QString::number(text.size());
    {
        const auto offered = offer(text);
        EXPECT_TRUE(paste() == text.toUtf8());
        EXPECT_TRUE(waitUntil([&] { return offered->reads() == 1; }));
    }
    const auto owner = copy(text.toUtf8());
    const auto contents = await(m_pasteboard->read(milliseconds(3000)));
    EXPECT_TRUE(contents.complete);
    EXPECT_TRUE(contents.formats.at(plainText) == text.toUtf8());
}

TEST_F(WaylandPasteboardTest, ReadersThatStallOrHangUpHarmNobody) {
    const auto offered = offer(QString(2000000, u'x'));
    // Gets no further than the buffers on the way hold: nobody empties its output.
    const QTemporaryDir folder;
    const auto output = folder.filePath(QStringLiteral("output"));
    ASSERT_EQ(::mkfifo(output.toLocal8Bit().constData(), 0600), 0);
    const int end = ::open(output.toLocal8Bit().constData(), O_RDWR | O_CLOEXEC);
    QProcess stalled;
    stalled.setStandardOutputFile(output);
    stalled.start(QStringLiteral("wl-paste"), {});
    int arrived = 0;
    EXPECT_TRUE(waitUntil([&] { return ::ioctl(end, FIONREAD, &arrived) == 0 && arrived > 0; }));
    const auto hungUp = launch(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("wl-paste | head -c 10")});
    EXPECT_TRUE(hungUp->waitForFinished(15000));
    EXPECT_EQ(paste().size(), 2000000);
    EXPECT_TRUE(await(offered->waitUntilRead(milliseconds(5000))));
    EXPECT_TRUE(m_pasteboard->isAvailable());
    EXPECT_TRUE(offered->isOwner());
    EXPECT_EQ(offered->reads(), 1) << "who takes half of the text has not read it";
    ::close(end);
    stalled.kill();
    stalled.waitForFinished();
}

TEST_F(WaylandPasteboardTest, RestoresWhatWasThere) {
    QByteArray image(300000, '\0');
    for (qsizetype index = 0; index < image.size(); ++index)
        image[index] = static_cast<char>(index * 7);
    const auto owner = copy(image, QStringLiteral("image/png"));
    auto contents = await(m_pasteboard->read(milliseconds(2000)));
    ASSERT_TRUE(contents.complete);
    contents.formats[plainText] = "caption";

    const auto offered = offer(QStringLiteral("dictated"), true);
    EXPECT_EQ(paste(), "dictated");
    EXPECT_TRUE(await(offered->waitUntilRead(milliseconds(5000))));
    EXPECT_TRUE(await(m_pasteboard->restore(contents, offered)));
    EXPECT_FALSE(offered->isOwner());
    EXPECT_EQ(paste({QStringLiteral("-t"), QStringLiteral("image/png")}), image);
    EXPECT_EQ(paste({QStringLiteral("-t"), plainText}), "caption");
    EXPECT_EQ(offered->reads(), 1) << "reads of what was restored are not reads of the text";
    EXPECT_EQ(await(m_pasteboard->read(milliseconds(500))).formats, contents.formats);
}

TEST_F(WaylandPasteboardTest, AnotherProgramsCopyIsNotOverwritten) {
    const auto offered = offer(QStringLiteral("dictated"));
    const auto owner = copy("the user's own");
    EXPECT_TRUE(waitUntil([&] { return !offered->isOwner(); }));
    EXPECT_FALSE(await(offered->waitUntilRead(milliseconds(5000)))) << "a lost offer is not waited for";
    PasteboardContents old;
    old.formats[plainText] = "old";
    EXPECT_FALSE(await(m_pasteboard->restore(old, offered)));
    EXPECT_EQ(paste(), "the user's own");
    // One text after the other: the first offer learns that it is over.
    const auto second = offer(QStringLiteral("second"));
    const auto third = offer(QStringLiteral("third"));
    EXPECT_FALSE(second->isOwner());
    EXPECT_TRUE(third->isOwner());
    EXPECT_EQ(paste(), "third");
}

TEST_F(WaylandPasteboardTest, AHungOwnerCostsTheDeadlineOnly) {
    const auto owner = copy("stuck");
    ::kill(static_cast<pid_t>(owner->processId()), SIGSTOP);
    const auto before = std::chrono::steady_clock::now();
    const auto contents = await(m_pasteboard->read(milliseconds(200)));
    EXPECT_LT(std::chrono::steady_clock::now() - before, milliseconds(400));
    EXPECT_FALSE(contents.complete);
    // The clipboard can be taken from it all the same.
    const auto offered = offer(QStringLiteral("free"));
    EXPECT_EQ(paste(), "free");
    ::kill(static_cast<pid_t>(owner->processId()), SIGCONT);
}

TEST_F(WaylandPasteboardTest, CountsEveryChangeOfHands) {
    auto count = m_pasteboard->changeCount();
    ASSERT_TRUE(count);
    const auto changed = [&](const char* what) {
        EXPECT_TRUE(waitUntil([&] { return m_pasteboard->changeCount() > count; })) << what;
        count = m_pasteboard->changeCount();
    };
    auto owner = copy("one");
    changed("another program copied");
    const auto offered = offer(QStringLiteral("dictated"));
    changed("we took it");
    EXPECT_EQ(paste(), "dictated");
    EXPECT_EQ(m_pasteboard->changeCount(), count) << "reading changes nothing";
    await(m_pasteboard->restore({}, offered));
    changed("we gave it up");
    owner = copy("two");
    changed("another program copied again");
    owner->kill();
    owner->waitForFinished();
    changed("its owner ended");
    EXPECT_TRUE(await(m_pasteboard->read(milliseconds(500))).isEmpty());
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
    const auto offered = await(pasteboard->offerText(QStringLiteral("text"), true));
    ASSERT_TRUE(offered && offered->isOwner());
    compositor.kill();
    EXPECT_TRUE(waitUntil([&] { return !pasteboard->isAvailable(); }));
    EXPECT_FALSE(offered->isOwner());
    EXPECT_EQ(await(pasteboard->offerText(QStringLiteral("more"), false)), nullptr);
    EXPECT_TRUE(await(pasteboard->read(milliseconds(100))).isEmpty());
}

} // namespace
} // namespace quillo
