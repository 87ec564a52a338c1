#include "Platform/Linux/X11/SelectionTargets.h"
#include "Platform/Linux/X11/X11Pasteboard.h"
#include "Platform/PasteboardContract.h"
#include "Support/XSession.h"

namespace quillo {
namespace {

using std::chrono::milliseconds;
using test::await;

struct XClip {
    static constexpr const char16_t* text = u"UTF8_STRING";

    static std::unique_ptr<Pasteboard> create() { return createX11Pasteboard(); }
    static QStringList arguments(const QString& selection, const QString& type, const QString& direction) {
        return {u"-selection"_qs, selection, u"-t"_qs, type, direction};
    }
    std::unique_ptr<QProcess> launchOwner(const QString& type) {
        return session.launch(u"xclip"_qs, QStringList{u"-quiet"_qs} + arguments(u"clipboard"_qs, type, u"-i"_qs));
    }
    QByteArray paste(const QString& type, bool primary) {
        const auto selection = primary ? u"primary"_qs : u"clipboard"_qs;
        return session.run(u"xclip"_qs, arguments(selection, type, u"-o"_qs));
    }
    QByteArray listTypes() { return paste(u"TARGETS"_qs, false); }

    test::XSession session;
};

} // namespace

namespace test {
INSTANTIATE_TYPED_TEST_SUITE_P(X11, PasteboardContract, XClip);
} // namespace test

namespace {

using X11PasteboardTest = test::PasteboardContract<XClip>;

TEST_F(X11PasteboardTest, CountsTheReadsOfOneProgramAlone) {
    const auto offered = offer(u"who"_qs);
    EXPECT_EQ(paste(privacyHint), "secret") << "managers are asked to keep nothing";
    EXPECT_EQ(offered->reads(), 0);
    offered->countReadsOf(1);
    EXPECT_EQ(paste(), "who");
    EXPECT_FALSE(isRead(*offered, 1)) << "a manager is not the target";
    auto reader = s_desktop->session.launch(u"sh"_qs, {u"-c"_qs, u"read line; exec xclip -selection clipboard -o"_qs});
    offered->countReadsOf(reader->processId());
    reader->write("\n");
    EXPECT_TRUE(isRead(*offered, 5000));
    EXPECT_TRUE(offered->knowsReader());
    reader->waitForFinished();
}

TEST_F(X11PasteboardTest, ATextDoesNotWaitForTheReadingOfAHungOwner) {
    const auto owner = copy("stuck");
    ::kill(static_cast<pid_t>(owner->processId()), SIGSTOP);
    auto reading = m_pasteboard->read(milliseconds(8000));
    EXPECT_TRUE(await(m_pasteboard->offerText(u"free"_qs, false, ClipboardUse::passing), milliseconds(2000)));
    EXPECT_FALSE(await(std::move(reading), milliseconds(2000)).complete);
    EXPECT_EQ(paste(), "free");
    ::kill(static_cast<pid_t>(owner->processId()), SIGCONT);
}

TEST(X11PasteboardWithoutServer, SaysNotAvailable) {
    qputenv("DISPLAY", ":0x");
    EXPECT_EQ(createX11Pasteboard(), nullptr);
}

} // namespace
} // namespace quillo
