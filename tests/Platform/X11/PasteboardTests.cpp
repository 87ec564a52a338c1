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
        return {QStringLiteral("-selection"), selection, QStringLiteral("-t"), type, direction};
    }
    std::unique_ptr<QProcess> launchOwner(const QString& type) {
        return session.launch(QStringLiteral("xclip"),
                              QStringList{QStringLiteral("-quiet")} +
                                  arguments(QStringLiteral("clipboard"), type, QStringLiteral("-i")));
    }
    QByteArray paste(const QString& type, bool primary) {
        const auto selection = primary ? QStringLiteral("primary") : QStringLiteral("clipboard");
        return session.run(QStringLiteral("xclip"), arguments(selection, type, QStringLiteral("-o")));
    }
    QByteArray listTypes() { return paste(QStringLiteral("TARGETS"), false); }

    test::XSession session;
};

} // namespace

namespace test {
INSTANTIATE_TYPED_TEST_SUITE_P(X11, PasteboardContract, XClip);
} // namespace test

namespace {

using X11PasteboardTest = test::PasteboardContract<XClip>;

TEST_F(X11PasteboardTest, CountsTheReadsOfOneProgramAlone) {
    const auto offered = offer(QStringLiteral("who"));
    EXPECT_EQ(paste(privacyHint), "secret") << "managers are asked to keep nothing";
    EXPECT_EQ(offered->reads(), 0);
    offered->countReadsOf(1);
    EXPECT_EQ(paste(), "who");
    EXPECT_FALSE(isRead(*offered, 1)) << "a manager is not the target";
    auto reader = s_desktop->session.launch(
        QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("read line; exec xclip -selection clipboard -o")});
    offered->countReadsOf(reader->processId());
    reader->write("\n");
    EXPECT_TRUE(isRead(*offered, 5000));
    EXPECT_TRUE(offered->knowsReader());
    reader->waitForFinished();
}

TEST_F(X11PasteboardTest, AnOwnerThatSaysNothingIsGivenUpBeforeALongDeadline) {
    const auto owner = copy("stuck");
    ::kill(static_cast<pid_t>(owner->processId()), SIGSTOP);
    EXPECT_FALSE(await(m_pasteboard->read(milliseconds(8000)), milliseconds(2000)).complete);
    ::kill(static_cast<pid_t>(owner->processId()), SIGCONT);
}

TEST(X11PasteboardWithoutServer, SaysNotAvailable) {
    qputenv("DISPLAY", ":0x");
    EXPECT_EQ(createX11Pasteboard(), nullptr);
}

} // namespace
} // namespace quillo
