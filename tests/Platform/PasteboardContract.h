#pragma once

#include "Platform/Pasteboard.h"
#include "Support/Async.h"

#include <gmock/gmock.h>

#include <QProcess>

#include <csignal>

namespace quillo::test {

/// What every clipboard keeps to, whatever the desktop. `Desktop` is the private desktop of a suite:
///     static std::unique_ptr<Pasteboard> create();                    the adapter under test
///     std::unique_ptr<QProcess> launchOwner(const QString& type);     another program; offers what it reads from stdin
///     QByteArray paste(const QString& type, bool primary);            what another program gets
///     QByteArray listTypes();
///     static constexpr const char16_t* text;                          its name for UTF-8 text
template <class Desktop>
class PasteboardContract : public testing::Test {
protected:
    static void SetUpTestSuite() { s_desktop = std::make_unique<Desktop>(); }
    static void TearDownTestSuite() { s_desktop.reset(); }

    void SetUp() override {
        m_pasteboard = Desktop::create();
        ASSERT_TRUE(m_pasteboard && m_pasteboard->isAvailable());
    }

    /// Another program that owns the clipboard until it loses it.
    std::unique_ptr<QProcess> copy(const QByteArray& content, const QString& type = m_text) {
        auto owner = s_desktop->launchOwner(type);
        owner->write(content);
        owner->closeWriteChannel();
        EXPECT_TRUE(waitUntil([&] { return read(2000).formats[type] == content; }));
        return owner;
    }
    static QByteArray paste(const QString& type = m_text, bool primary = false) {
        return s_desktop->paste(type, primary);
    }
    PasteboardContents read(int milliseconds) {
        return await(m_pasteboard->read(std::chrono::milliseconds(milliseconds)));
    }
    std::shared_ptr<PasteboardOffer> offer(const QString& text, bool alsoPrimary = false) {
        return await(m_pasteboard->offerText(text, alsoPrimary, ClipboardUse::passing));
    }
    static bool isRead(PasteboardOffer& offer, int milliseconds) {
        return await(offer.waitUntilRead(std::chrono::milliseconds(milliseconds)));
    }

    static inline const QString m_text = QString::fromUtf16(Desktop::text);
    static inline std::unique_ptr<Desktop> s_desktop;
    std::unique_ptr<Pasteboard> m_pasteboard;
};

TYPED_TEST_SUITE_P(PasteboardContract);

TYPED_TEST_P(PasteboardContract, ServesTextInEveryFormAndCountsReads) {
    const auto text = u"naïve 日本語 😀\nline"_qs;
    const auto offered = this->offer(text, true);
    ASSERT_TRUE(offered && offered->isOwner());
    EXPECT_TRUE(this->s_desktop->listTypes().contains("text/plain;charset=utf-8"));
    EXPECT_EQ(offered->reads(), 0) << "asking for the formats is no read";
    EXPECT_FALSE(this->isRead(*offered, 1));
    EXPECT_FALSE(offered->lastRead());

    int reads = 0;
    for (const auto* type : {"UTF8_STRING", "text/plain", "text/plain;charset=utf-8", "TEXT"}) {
        EXPECT_EQ(this->paste(QString::fromLatin1(type)), text.toUtf8()) << type;
        EXPECT_TRUE(waitUntil([&] { return offered->reads() == reads + 1; })) << type;
        ++reads;
    }
    EXPECT_EQ(this->paste(this->m_text, true), text.toUtf8());
    EXPECT_TRUE(this->isRead(*offered, 1));
    EXPECT_TRUE(offered->lastRead());
}

TYPED_TEST_P(PasteboardContract, LargeContentGoesBothWays) {
    QString text;
    while (text.size() < 1500000)
        text += u"größer 日本 😀 "_qs + QString::number(text.size());
    {
        const auto offered = this->offer(text);
        EXPECT_TRUE(this->paste() == text.toUtf8());
        EXPECT_TRUE(waitUntil([&] { return offered->reads() == 1; }));
    }
    const auto owner = this->copy(text.toUtf8());
    const auto contents = this->read(3000);
    EXPECT_TRUE(contents.complete);
    EXPECT_TRUE(contents.formats.at(this->m_text) == text.toUtf8());
}

TYPED_TEST_P(PasteboardContract, RestoresWhatWasThere) {
    QByteArray image(300000, '\0');
    for (qsizetype index = 0; index < image.size(); ++index)
        image[index] = static_cast<char>(index * 7);
    const auto owner = this->copy(image, u"image/png"_qs);
    auto contents = this->read(2000);
    ASSERT_TRUE(contents.complete);
    contents.formats[this->m_text] = "caption";

    const auto offered = this->offer(u"dictated"_qs, true);
    EXPECT_EQ(this->paste(), "dictated");
    EXPECT_TRUE(this->isRead(*offered, 5000));
    EXPECT_TRUE(await(this->m_pasteboard->restore(contents, offered)));
    EXPECT_FALSE(offered->isOwner());
    EXPECT_EQ(this->paste(u"image/png"_qs), image);
    EXPECT_EQ(this->paste(), "caption");
    EXPECT_EQ(offered->reads(), 1) << "reads of what was restored are not reads of the text";
    EXPECT_EQ(this->read(500).formats, contents.formats);
}

TYPED_TEST_P(PasteboardContract, AnotherProgramsCopyIsNotOverwritten) {
    const auto offered = this->offer(u"dictated"_qs);
    const auto owner = this->copy("the user's own");
    EXPECT_TRUE(waitUntil([&] { return !offered->isOwner(); }));
    EXPECT_FALSE(this->isRead(*offered, 5000)) << "a lost offer is not waited for";
    PasteboardContents old;
    old.formats[this->m_text] = "old";
    EXPECT_FALSE(await(this->m_pasteboard->restore(old, offered)));
    EXPECT_EQ(this->paste(), "the user's own");
    // One text after the other: the first offer learns that it is over.
    const auto second = this->offer(u"second"_qs);
    const auto third = this->offer(u"third"_qs);
    EXPECT_FALSE(second->isOwner());
    EXPECT_TRUE(third->isOwner());
    EXPECT_EQ(this->paste(), "third");
}

TYPED_TEST_P(PasteboardContract, AHungOwnerCostsTheDeadlineOnly) {
    const auto owner = this->copy("stuck");
    ::kill(static_cast<pid_t>(owner->processId()), SIGSTOP);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(this->read(200).complete);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(400));
    // The clipboard can be taken from it all the same.
    const auto offered = this->offer(u"free"_qs);
    EXPECT_EQ(this->paste(), "free");
    ::kill(static_cast<pid_t>(owner->processId()), SIGCONT);
}

TYPED_TEST_P(PasteboardContract, CountsEveryChangeOfHands) {
    auto count = this->m_pasteboard->changeCount();
    ASSERT_TRUE(count);
    const auto changed = [&](const char* what) {
        EXPECT_TRUE(waitUntil([&] { return this->m_pasteboard->changeCount() > count; })) << what;
        count = this->m_pasteboard->changeCount();
    };
    auto owner = this->copy("one");
    changed("another program copied");
    const auto offered = this->offer(u"dictated"_qs);
    changed("we took it");
    EXPECT_EQ(this->paste(), "dictated");
    EXPECT_EQ(this->m_pasteboard->changeCount(), count) << "reading changes nothing";
    EXPECT_TRUE(await(this->m_pasteboard->restore({}, offered)));
    changed("we gave it up");
    const auto contents = this->read(500);
    EXPECT_TRUE(contents.isEmpty() && contents.complete) << "an empty clipboard stays empty";
    owner = this->copy("two");
    changed("another program copied again");
    owner->kill();
    owner->waitForFinished();
    changed("its owner ended");
    EXPECT_TRUE(this->read(500).isEmpty());
}

REGISTER_TYPED_TEST_SUITE_P(PasteboardContract, ServesTextInEveryFormAndCountsReads, LargeContentGoesBothWays,
                            RestoresWhatWasThere, AnotherProgramsCopyIsNotOverwritten, AHungOwnerCostsTheDeadlineOnly,
                            CountsEveryChangeOfHands);

} // namespace quillo::test
