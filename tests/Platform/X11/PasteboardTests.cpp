#include "Platform/Linux/X11/X11Pasteboard.h"
#include "Support/Async.h"
#include "Support/XSession.h"

#include <gmock/gmock.h>

#include <csignal>

namespace quillo {
namespace {

using std::chrono::milliseconds;
using test::await;
using test::waitUntil;

class PasteboardTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_session = std::make_unique<test::XSession>(); }
    static void TearDownTestSuite() { s_session.reset(); }

    void SetUp() override {
        m_pasteboard = createX11Pasteboard();
        ASSERT_TRUE(m_pasteboard && m_pasteboard->isAvailable());
    }

    /// Another program that owns the clipboard until it loses it.
    std::unique_ptr<QProcess> copy(const QByteArray& content, const QString& target = QStringLiteral("UTF8_STRING")) {
        auto owner = s_session->launch(QStringLiteral("xclip"), {QStringLiteral("-quiet"), QStringLiteral("-selection"),
                                                                 QStringLiteral("clipboard"), QStringLiteral("-t"),
                                                                 target, QStringLiteral("-i")});
        owner->write(content);
        owner->closeWriteChannel();
        EXPECT_TRUE(
            waitUntil([&] { return await(m_pasteboard->read(milliseconds(2000))).formats[target] == content; }));
        return owner;
    }

    /// What another program gets; the event loop is not needed, for the owner has a thread of its own.
    static QByteArray paste(const QString& target = QStringLiteral("UTF8_STRING"),
                            const QString& selection = QStringLiteral("clipboard")) {
        return s_session->run(QStringLiteral("xclip"), {QStringLiteral("-selection"), selection, QStringLiteral("-t"),
                                                        target, QStringLiteral("-o")});
    }

    std::shared_ptr<PasteboardOffer> offer(const QString& text, bool alsoPrimary = false) {
        return await(m_pasteboard->offerText(text, alsoPrimary));
    }

    static std::unique_ptr<test::XSession> s_session;
    std::unique_ptr<Pasteboard> m_pasteboard;
};

std::unique_ptr<test::XSession> PasteboardTest::s_session;

TEST_F(PasteboardTest, ServesTextInEveryFormAndCountsReads) {
    const auto offered = offer(QStringLiteral("naïve 日本語 😀\nline"), true);
    ASSERT_TRUE(offered->isOwner());
    EXPECT_TRUE(paste(QStringLiteral("TARGETS")).contains("text/plain;charset=utf-8"));
    EXPECT_EQ(offered->reads(), 0) << "asking for the formats is no read";
    EXPECT_FALSE(await(offered->waitUntilRead(milliseconds(1))));
    EXPECT_FALSE(offered->lastRead());

    const QByteArray text = "naïve 日本語 😀\nline";
    int reads = 0;
    for (const auto& target : {QStringLiteral("UTF8_STRING"), QStringLiteral("text/plain"),
                               QStringLiteral("text/plain;charset=utf-8"), QStringLiteral("TEXT")}) {
        EXPECT_EQ(paste(target), text) << target.toStdString();
        EXPECT_EQ(offered->reads(), ++reads);
    }
    EXPECT_EQ(paste(QStringLiteral("UTF8_STRING"), QStringLiteral("primary")), text);
    EXPECT_TRUE(await(offered->waitUntilRead(milliseconds(1))));
    EXPECT_TRUE(offered->lastRead());
}

TEST_F(PasteboardTest, TellsWhoRead) {
    const auto offered = offer(QStringLiteral("who"));
    auto reader = s_session->launch(QStringLiteral("xclip"),
                                    {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")});
    const int64_t pid = reader->processId();
    EXPECT_TRUE(await(offered->waitUntilRead(milliseconds(5000))));
    EXPECT_TRUE(offered->readBy(pid));
    EXPECT_FALSE(offered->readBy(pid + 1));
    reader->waitForFinished();
}

TEST_F(PasteboardTest, LargeContentGoesBothWays) {
    QString text;
    while (text.size() < 1500000)
        text += QStringLiteral("größer 日本 ") + QString::number(text.size());
    {
        const auto offered = offer(text);
        EXPECT_EQ(paste(), text.toUtf8());
        EXPECT_EQ(offered->reads(), 1);
    }
    const auto owner = copy(text.toUtf8());
    const auto contents = await(m_pasteboard->read(milliseconds(3000)));
    EXPECT_TRUE(contents.complete);
    EXPECT_EQ(contents.formats.at(QStringLiteral("UTF8_STRING")), text.toUtf8());
}

TEST_F(PasteboardTest, RestoresWhatWasThere) {
    QByteArray image(300000, '\0');
    for (qsizetype index = 0; index < image.size(); ++index)
        image[index] = static_cast<char>(index * 7);
    const auto owner = copy(image, QStringLiteral("image/png"));
    auto contents = await(m_pasteboard->read(milliseconds(2000)));
    ASSERT_TRUE(contents.complete);
    contents.formats[QStringLiteral("UTF8_STRING")] = "caption";

    const auto offered = offer(QStringLiteral("dictated"), true);
    EXPECT_EQ(paste(), "dictated");
    EXPECT_TRUE(await(m_pasteboard->restore(contents, offered)));
    EXPECT_FALSE(offered->isOwner());
    EXPECT_EQ(paste(QStringLiteral("image/png")), image);
    EXPECT_EQ(paste(), "caption");
    EXPECT_EQ(offered->reads(), 1) << "reads of what was restored are not reads of the text";
    EXPECT_EQ(await(m_pasteboard->read(milliseconds(500))).formats, contents.formats);
}

TEST_F(PasteboardTest, AnotherProgramsCopyIsNotOverwritten) {
    const auto offered = offer(QStringLiteral("dictated"));
    const auto owner = copy("the user's own");
    EXPECT_TRUE(waitUntil([&] { return !offered->isOwner(); }));
    EXPECT_FALSE(await(offered->waitUntilRead(milliseconds(5000)))) << "a lost offer is not waited for";
    PasteboardContents old;
    old.formats[QStringLiteral("UTF8_STRING")] = "old";
    EXPECT_FALSE(await(m_pasteboard->restore(old, offered)));
    EXPECT_EQ(paste(), "the user's own");
}

TEST_F(PasteboardTest, AHungOwnerCostsTheDeadlineOnly) {
    const auto owner = copy("stuck");
    ::kill(static_cast<pid_t>(owner->processId()), SIGSTOP);
    const auto before = std::chrono::steady_clock::now();
    const auto contents = await(m_pasteboard->read(milliseconds(200)));
    EXPECT_LT(std::chrono::steady_clock::now() - before, milliseconds(400));
    EXPECT_FALSE(contents.complete);
    // However long it may take: an owner that says nothing at all is given up soon.
    EXPECT_FALSE(await(m_pasteboard->read(milliseconds(8000)), milliseconds(2000)).complete);
    // The clipboard can be taken from it all the same.
    const auto offered = offer(QStringLiteral("free"));
    EXPECT_EQ(paste(), "free");
    ::kill(static_cast<pid_t>(owner->processId()), SIGCONT);
}

TEST_F(PasteboardTest, CountsEveryChangeOfHands) {
    auto count = m_pasteboard->changeCount();
    ASSERT_TRUE(count);
    const auto changed = [&](const char* what) {
        const auto now = m_pasteboard->changeCount();
        EXPECT_GT(now, count) << what;
        count = now;
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
    EXPECT_TRUE(waitUntil([&] { return m_pasteboard->changeCount() > count; })) << "its owner ended";
}

TEST_F(PasteboardTest, AnEmptyClipboardIsEmptyAndStaysSo) {
    const auto offered = offer(QStringLiteral("gone"));
    EXPECT_TRUE(await(m_pasteboard->restore({}, offered)));
    const auto contents = await(m_pasteboard->read(milliseconds(500)));
    EXPECT_TRUE(contents.isEmpty() && contents.complete);
}

TEST(PasteboardWithoutServer, SaysNotAvailable) {
    qputenv("DISPLAY", ":0x");
    EXPECT_EQ(createX11Pasteboard(), nullptr);
}

} // namespace
} // namespace quillo
