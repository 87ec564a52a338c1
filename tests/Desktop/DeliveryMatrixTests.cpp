// What arrives where: every way of inserting, into programs of every toolkit, under several keyboard layouts, compared
// byte for byte. The dictations are real but for the recogniser, which answers what the test says.

#include "ScriptedDesktop.h"
#include "Support/Async.h"
#include "Targets/TargetWindow.h"

#include <gtest/gtest.h>

#include <csignal>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

// What breaks keyboards: joined emoji, flags, combining marks, dead keys, several scripts, third levels, trailing
// blanks.
const QString line = QStringLiteral(
    u"„Grüße“ Ä Ö ß ^ ` ´ ~ @€\\{}[]|<> 👩‍👩‍👧 🇩🇪 e\u0301 ñ Привет, Ёж "
    u"日本語 "
    u"½ "
    u"x=1;  ");
const QString block = u"first\tcolumn, "_qs + line + u"\nsecond "_qs + line;

struct Row {
    QString target;
    QString layout;
    QString mode;
    QByteArray sent;
    QByteArray expected;
    QByteArray received;
    QString delivery;
    bool clipboardKept = false;
    bool mappingKept = false;
    /// A text that a busy program fetches late, and that is reported so, stays on the clipboard.
    [[nodiscard]] bool isRight() const {
        return received == expected && mappingKept && (clipboardKept || delivery == u"unconfirmed");
    }
};

class DeliveryMatrix : public OnOneDesktop {
protected:
    Row deliver(const TargetWindow& target, const QString& layout, const QString& mode, const QString& text) {
        activate(session, target);
        auto& owner = copySeveralFormats(session);
        const auto clipboard = clipboardFingerprint(session);
        const auto mapping = keyboardMapping(session);
        const auto before = target.content();
        desktop.set("insertionMode", mode);
        const auto run = desktop.dictate(text);
        Row row{.target = target.name,
                .layout = layout,
                .mode = mode,
                .sent = run.value(u"text"_qs).toString().toUtf8(),
                .expected = {},
                .received = {},
                .delivery = run.value(u"delivery"_qs).toString()};
        if (!row.delivery.isEmpty())
            row.expected = expected(target, row.sent);
        const auto received = [&] {
            row.received = target.content().mid(before.size());
            return row.received.size() >= row.expected.size();
        };
        waitUntil(received, 20s);
        row.mappingKept = waitUntil([&] { return keyboardMapping(session) == mapping; }, 5s);
        row.clipboardKept = waitUntil([&] { return clipboardFingerprint(session) == clipboard; }, 5s);
        session.end(owner);
        return row;
    }

    /// A terminal sends line ends as the Return key does, and the last ones would run what was dictated.
    static QByteArray expected(const TargetWindow& target, QByteArray sent) {
        if (target.name != u"xterm")
            return sent;
        while (sent.endsWith('\n'))
            sent.chop(1);
        return sent.replace('\n', '\r');
    }
};

TEST_F(DeliveryMatrix, EveryTextArrivesByteForByteEverywhere) {
    const std::vector<TargetWindow> targets{openGtkField(session), openQtField(session), openTerminal(session),
                                            openBrowser(session)};
    std::vector<Row> rows;
    for (const auto* layout : {"us", "de", "ru"}) {
        session.run(u"setxkbmap"_qs, {QString::fromLatin1(layout)});
        for (const auto& target : targets) {
            rows.push_back(deliver(target, QString::fromLatin1(layout), u"paste"_qs, block));
            rows.push_back(deliver(target, QString::fromLatin1(layout), u"type"_qs, line));
        }
    }
    // Line ends and tabs would be keys that send a message or leave the field.
    for (const auto& target : targets)
        rows.push_back(deliver(target, u"ru"_qs, u"type"_qs, block + u'\n'));

    for (const auto& row : rows)
        EXPECT_TRUE(row.isRight()) << row.target.toStdString() << " " << row.layout.toStdString() << " "
                                   << row.mode.toStdString() << "\n  expected " << row.expected.toStdString()
                                   << "\n  received " << row.received.toStdString() << "\n  in bytes "
                                   << row.received.toPercentEncoding(" ").toStdString() << "\n  delivery "
                                   << row.delivery.toStdString() << ", clipboard kept " << row.clipboardKept
                                   << ", mapping kept " << row.mappingKept;
}

TEST_F(DeliveryMatrix, APasswordFieldIsRefusedBeforeAnythingIsTouched) {
    session.shell(u"setxkbmap us"_qs);
    for (const auto& target : {openQtField(session, FieldKind::password), openGtkField(session, FieldKind::password)}) {
        for (const auto* mode : {"paste", "type"}) {
            const auto row = deliver(target, u"us"_qs, QString::fromLatin1(mode), line);
            EXPECT_EQ(row.delivery, QString()) << target.name.toStdString() << " " << mode;
            EXPECT_EQ(row.received, QByteArray()) << target.name.toStdString() << " " << mode;
            EXPECT_TRUE(row.clipboardKept && row.mappingKept) << target.name.toStdString() << " " << mode;
            EXPECT_EQ(desktop.lastRun().value(u"text"_qs).toString().toUtf8(), row.sent) << "the text is lost";
        }
        session.end(*target.process);
    }
}

TEST_F(DeliveryMatrix, WithoutATextFieldTheTextIsNotClaimedToHaveArrived) {
    const auto target = openQtField(session, FieldKind::button);
    activate(session, target);
    desktop.set("insertionMode", u"paste"_qs);
    const auto run = desktop.dictate(line);
    EXPECT_EQ(run.value(u"delivery"_qs).toString(), u"unconfirmed"_qs);
    EXPECT_EQ(desktop.logged(u"⚠️ Text pasted but no text field was focused — saved to history"_qs), 1);
    const auto clipboard = session.shell(u"xclip -selection clipboard -o"_qs);
    EXPECT_EQ(clipboard, run.value(u"text"_qs).toString()) << "it can be pasted by hand";
}

TEST_F(DeliveryMatrix, AProgramThatHangsOnTheClipboardDoesNotHoldTheTextUp) {
    session.shell(u"setxkbmap us"_qs);
    desktop.set("insertionMode", u"paste"_qs);
    const auto field = openQtField(session);
    activate(session, field);
    auto& owner = copySeveralFormats(session);
    ::kill(static_cast<pid_t>(owner.processId()), SIGSTOP);
    const auto run = desktop.dictate(u"All the same."_qs);
    ::kill(static_cast<pid_t>(owner.processId()), SIGCONT);
    EXPECT_EQ(run.value(u"delivery"_qs).toString(), u"typed"_qs) << "pasting would destroy what cannot be read";
    EXPECT_TRUE(waitUntil([&] { return field.content() == "All the same."; }, 5s));
    EXPECT_EQ(session.shell(u"xclip -selection clipboard -o"_qs), u"mine, not yours: Grüße 日本"_qs);
    session.end(owner);
    session.end(*field.process);
}

TEST_F(DeliveryMatrix, TwoDictationsIntoOneFieldAreTwoSentences) {
    desktop.set("smartSpacing", u"true"_qs);
    for (const auto& field : {openQtField(session), openGtkField(session)}) {
        activate(session, field);
        desktop.dictate(u"We make a decision."_qs);
        EXPECT_TRUE(waitUntil([&] { return field.content() == "We make a decision."; }, 5s));
        desktop.dictate(u"Everyone agrees."_qs);
        EXPECT_TRUE(waitUntil([&] { return field.content() == "We make a decision. Everyone agrees."; }, 5s))
            << field.name.toStdString() << ": " << field.content().toStdString();
        session.end(*field.process);
    }
    desktop.set("smartSpacing", u"false"_qs);
}

} // namespace
