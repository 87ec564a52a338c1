// Where the tokens of a session can be read: in the desktop's secret store, or in the one file that its owner alone may
// read. Nowhere else, at no time.

#include "AccountDesktop.h"
#include "Support/Async.h"
#include "Support/Files.h"

#include <QDirIterator>
#include <QJsonDocument>
#include <QTimer>
#include <QUrlQuery>

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

/// The command lines of all processes of the machine, as everybody on it can read them, noted again and again.
class CommandLines {
public:
    CommandLines() {
        QObject::connect(&m_timer, &QTimer::timeout, [this] { note(); });
        m_timer.start(20ms);
    }

    [[nodiscard]] const QSet<QByteArray>& seen() const { return m_seen; }

private:
    void note() {
        for (const auto& process : QDir(u"/proc"_qs).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            if (process.front().isDigit())
                m_seen << contentOf(u"/proc/%1/cmdline"_qs.arg(process));
    }

    QTimer m_timer;
    QSet<QByteArray> m_seen;
};

struct Store {
    const char* name;
    DesktopSession::Secrets secrets;
};

void PrintTo(const Store& store, std::ostream* stream) { *stream << store.name; }

class TokenSecrecyTest : public testing::TestWithParam<Store> {
protected:
    static DesktopSession::Options options() {
        DesktopSession::Options options;
        options.secrets = GetParam().secrets;
        return options;
    }

    /// Notes the tokens that the application keeps now, both of them.
    void noteTokens() {
        const auto before = tokens.size();
        for (const auto* const name : {"accessToken", "refreshToken"}) {
            const auto key = u"com.quillospeech."_qs + QString::fromLatin1(name);
            QByteArray token;
            ASSERT_TRUE(waitUntil([&] {
                token = stored(key);
                return !token.isEmpty() && !tokens.contains(token);
            })) << key.toStdString();
            tokens << token;
        }
        EXPECT_EQ(tokens.size(), before + 2);
    }

    QByteArray stored(const QString& key) {
        if (GetParam().secrets == DesktopSession::Secrets::none)
            return QByteArray::fromBase64(
                QJsonDocument::fromJson(contentOf(secretsFile())).object().value(key).toString().toLatin1());
        return desktop.session.shell(u"secret-tool lookup server com.quillospeech user "_qs + key).trimmed().toUtf8();
    }

    [[nodiscard]] QString secretsFile() const {
        return desktop.session.path(u"home/.local/share/quillo/secrets.json"_qs);
    }

    /// Whether `bytes` hold a token in any form that reads as text; the message is kept for who must find it.
    [[nodiscard]] bool hold(const QByteArray& bytes) const {
        return std::any_of(tokens.begin(), tokens.end(), [&](const QByteArray& token) {
            const auto wide = QString::fromLatin1(token);
            return bytes.contains(token) || bytes.contains(token.toBase64(QByteArray::OmitTrailingEquals)) ||
                   bytes.contains(QByteArray(reinterpret_cast<const char*>(wide.utf16()), wide.size() * 2));
        });
    }

    CommandLines commandLines;
    AccountDesktop desktop{options(), u"--recogniser scripted"_qs};
    QList<QByteArray> tokens;
};

TEST_P(TokenSecrecyTest, NoTokenIsReadableOutsideItsStore) {
    noteTokens();
    ASSERT_TRUE(desktop.signIn(true)) << desktop.account().toStdString();
    noteTokens();
    const QUrlQuery answer{QUrl(desktop.callback())};
    EXPECT_GT(answer.queryItemValue(u"code"_qs).size(), 20);
    desktop.session.openTextField();
    desktop.session.pressKey(DesktopSession::rightSuper);
    EXPECT_TRUE(desktop.session.waitForStatus(u"recording"_qs));
    desktop.session.play(desktop.session.synthesize(u"Everyone on the team did an excellent job."_qs));
    desktop.session.releaseKey(DesktopSession::rightSuper);
    EXPECT_TRUE(waitUntil([&] { return !desktop.session.fieldReport().text.isEmpty(); }, 30s));
    EXPECT_TRUE(desktop.session.waitForStatus(u"idle"_qs));
    // None was there that has not been noted.
    EXPECT_EQ(desktop.logged("Tokens stored in keychain") + desktop.logged("Token refreshed successfully"),
              tokens.size() / 2);

    int files = 0;
    QDirIterator entries(desktop.session.folder(), QDir::Files | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const auto path = entries.next();
        if (!entries.fileInfo().isFile())
            continue;
        ++files;
        const bool isStore = path == secretsFile();
        const auto content = contentOf(path);
        EXPECT_EQ(hold(content), isStore && GetParam().secrets == DesktopSession::Secrets::none) << path.toStdString();
        if (isStore)
            EXPECT_FALSE(entries.fileInfo().permissions() & (QFile::ReadGroup | QFile::ReadOther));
        // The browser's answer is on a command line on its way here, and good for one use; a log lives longer.
        for (const auto& item : {u"code"_qs, u"state"_qs})
            EXPECT_FALSE(path.endsWith(u".log"_qs) && content.contains(answer.queryItemValue(item).toLatin1()))
                << path.toStdString() << ": " << item.toStdString();
    }
    EXPECT_GT(files, 10);
    const auto& lines = commandLines.seen();
    for (const auto& line : lines)
        EXPECT_FALSE(hold(line)) << line.toStdString();
    EXPECT_TRUE(
        std::any_of(lines.begin(), lines.end(), [](const auto& line) { return line.contains("quillo-server"); }));
}

INSTANTIATE_TEST_SUITE_P(Stores, TokenSecrecyTest,
                         testing::Values(Store{"SecretService", DesktopSession::Secrets::unlocked},
                                         Store{"File", DesktopSession::Secrets::none}),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
