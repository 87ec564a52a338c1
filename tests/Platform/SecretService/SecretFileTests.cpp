#include "Platform/Linux/SecretService/SecretStores.h"
#include "Services/Auth/KeychainTokenStorage.h"
#include "Support/Async.h"
#include "Support/Files.h"
#include "Support/LogLines.h"

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QElapsedTimer>

#include <gmock/gmock.h>
#include <sys/stat.h>

using namespace quillo;
using namespace quillo::test;

// Runs inside a session bus of its own on which there is no secret service.

namespace {

unsigned modeOf(const QString& path) {
    struct stat status {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 0777U : 0U;
}

TEST(FileSecretStore, KeepsSecretsForTheirOwnerAlone) {
    const QTemporaryDir folder;
    const auto path = folder.filePath(u"new/folder/secrets.json"_qs);
    const auto store = createFileSecretStore(path);
    EXPECT_EQ(store->read(u"a"_qs), std::nullopt);
    const QByteArray value("\0\xff\n", 3);
    ASSERT_TRUE(store->write(u"a"_qs, value));
    ASSERT_TRUE(store->write(u"b"_qs, "other"));
    EXPECT_EQ(modeOf(path), 0600U);
    EXPECT_EQ(modeOf(folder.filePath(u"new"_qs)), 0700U);
    EXPECT_EQ(modeOf(folder.filePath(u"new/folder"_qs)), 0700U);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther);
    EXPECT_EQ(createFileSecretStore(path)->read(u"a"_qs), value);
    EXPECT_EQ(modeOf(path), 0600U);
    EXPECT_TRUE(store->remove(u"a"_qs));
    EXPECT_EQ(store->read(u"a"_qs), std::nullopt);
    EXPECT_EQ(store->read(u"b"_qs), "other");
    EXPECT_EQ(QDir(folder.filePath(u"new/folder"_qs)).entryList(QDir::Files), QStringList(u"secrets.json"_qs));
}

TEST(FileSecretStore, NeverOverwritesWhatItCannotRead) {
    const LogLines log;
    const QTemporaryDir folder;
    const auto path = folder.filePath(u"secrets.json"_qs);
    for (const QByteArray content : {"{\"a\":", "[1]", "{\"a\":1}"}) {
        writeFile(path, content);
        ASSERT_TRUE(createFileSecretStore(path)->write(u"b"_qs, "new"));
        EXPECT_EQ(contentOf(path + u".damaged"_qs), content);
        EXPECT_EQ(createFileSecretStore(path)->read(u"b"_qs), "new");
    }
    // A folder where the file should be.
    EXPECT_FALSE(createFileSecretStore(folder.path())->write(u"a"_qs, "x"));
    EXPECT_EQ(log.count("cannot be read"), 1);
}

TEST(ChosenSecretStore, WithoutASecretServiceTheFileIsUsedAndTheUserTold) {
    const LogLines log;
    const QTemporaryDir folder;
    const auto path = folder.filePath(u"secrets.json"_qs);
    const auto store = createSecretStore(path);
    EXPECT_EQ(log.count("No secret service answers"), 0) << "nothing is asked before the first call";
    EXPECT_TRUE(store->write(u"a"_qs, "x"));
    EXPECT_EQ(store->read(u"a"_qs), "x");
    EXPECT_TRUE(store->isAvailable());
    EXPECT_EQ(createFileSecretStore(path)->read(u"a"_qs), "x");
    EXPECT_EQ(log.count("No secret service answers"), 1);
    EXPECT_TRUE(store->remove(u"a"_qs));
}

TEST(ChosenSecretStore, AStoreThatFailsReadsAsAbsentAndTheDeviceIdComesFromThePreferences) {
    const LogLines log;
    const QTemporaryDir folder;
    KeychainTokenStorage storage(createSecretServiceStore(), {[] { return u"device"_qs; }, [](const QString&) {}}, {});
    await(storage.load());
    EXPECT_EQ(storage.accessToken(), std::nullopt);
    EXPECT_EQ(storage.deviceId(), u"device"_qs);
    storage.setAccessToken(u"access"_qs);
    EXPECT_EQ(storage.accessToken(), u"access"_qs);
    EXPECT_TRUE(waitUntil([&] { return log.count("Keychain write failed for com.quillospeech.accessToken") == 1; }));
    EXPECT_THAT(log.text(), testing::HasSubstr("Keychain read failed for com.quillospeech.accessToken"));
    EXPECT_THAT(log.text(),
                testing::HasSubstr("Device ID recovered from UserDefaults fallback (Keychain unavailable)"));
}

/// Takes every call and answers none, as a service does that waits for its user to unlock it.
class SilentObject : public QDBusVirtualObject {
public:
    [[nodiscard]] QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage&, const QDBusConnection&) override { return true; }
};

TEST(SecretService, AServiceThatDoesNotAnswerCostsTheDeadlineAndNoMore) {
    auto bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"silent"_qs);
    ASSERT_TRUE(bus.isConnected());
    SilentObject silent;
    ASSERT_TRUE(bus.registerVirtualObject(u"/"_qs, &silent, QDBusConnection::SubPath));
    ASSERT_TRUE(bus.registerService(u"org.freedesktop.secrets"_qs));
    const auto store = createSecretServiceStore(std::chrono::milliseconds(100));
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_FALSE(store->isAvailable());
    EXPECT_GE(elapsed.elapsed(), 100);
    EXPECT_LT(elapsed.elapsed(), 2000);
    EXPECT_THROW((void)store->read(u"a"_qs), SecretStoreSilent);

    // It is there, so that what it holds is not to be missed: nothing goes into a file beside it.
    const QTemporaryDir folder;
    const auto path = folder.filePath(u"secrets.json"_qs);
    const auto chosen = createSecretStore(path, {std::chrono::milliseconds(100), std::chrono::milliseconds(100)});
    EXPECT_FALSE(chosen->isAvailable());
    EXPECT_TRUE(chosen->isLocked());
    EXPECT_FALSE(chosen->write(u"a"_qs, "x"));
    EXPECT_FALSE(QFile::exists(path));
    EXPECT_FALSE(chosen->reopen());
    ASSERT_TRUE(bus.unregisterService(u"org.freedesktop.secrets"_qs));
    QDBusConnection::disconnectFromBus(u"silent"_qs);
    EXPECT_TRUE(chosen->reopen()) << "the service has gone";
    EXPECT_TRUE(chosen->write(u"a"_qs, "x"));
}

} // namespace
