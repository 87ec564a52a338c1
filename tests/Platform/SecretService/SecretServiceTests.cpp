#include "Platform/Linux/SecretService/SecretStores.h"
#include "Services/Auth/KeychainTokenStorage.h"
#include "Support/Async.h"
#include "Support/LogLines.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace quillo;
using namespace quillo::test;

// Runs inside a session bus of its own with an unlocked keyring; see with-secret-service.sh.

namespace {

TEST(SecretService, KeepsBytesUnderTheirKey) {
    const auto store =
        createSecretServiceStore(std::chrono::seconds(10)); // the first call starts the service's session
    ASSERT_TRUE(store->isAvailable());
    EXPECT_EQ(store->read(u"a"_qs), std::nullopt);
    const QByteArray value("\0\xff secret", 9);
    EXPECT_TRUE(store->write(u"a"_qs, value));
    EXPECT_TRUE(store->write(u"b"_qs, "other"));
    EXPECT_EQ(createSecretServiceStore()->read(u"a"_qs), value);
    EXPECT_TRUE(store->write(u"a"_qs, "new"));
    EXPECT_EQ(store->read(u"a"_qs), "new");
    EXPECT_TRUE(store->remove(u"a"_qs));
    EXPECT_TRUE(store->remove(u"a"_qs));
    EXPECT_EQ(store->read(u"a"_qs), std::nullopt);
    EXPECT_EQ(store->read(u"b"_qs), "other");
}

TEST(SecretService, TakesOverWhatAnEarlierRunLeftInTheFile) {
    const QTemporaryDir folder;
    const auto path = folder.filePath(u"secrets.json"_qs);
    createFileSecretStore(path)->write(u"left"_qs, "behind");
    const auto store = createSecretStore(path, {std::chrono::seconds(10), std::chrono::seconds(10)});
    EXPECT_EQ(store->read(u"left"_qs), "behind");
    EXPECT_EQ(createFileSecretStore(path)->read(u"left"_qs), std::nullopt);
    EXPECT_EQ(createSecretServiceStore()->read(u"left"_qs), "behind");
    EXPECT_TRUE(store->remove(u"left"_qs));
}

TEST(SecretService, TheSessionSurvivesTheProgram) {
    const auto expiry = QDateTime::fromMSecsSinceEpoch(1'800'000'000'123, Qt::UTC);
    std::optional<QString> mirrored;
    const KeychainTokenStorage::DeviceIdMirror mirror{[&] { return mirrored; },
                                                      [&](const QString& id) { mirrored = id; }};
    const auto open = [&] {
        auto storage = std::make_unique<KeychainTokenStorage>(createSecretServiceStore(std::chrono::seconds(10)),
                                                              mirror, u"local"_qs);
        await(storage->load());
        return storage;
    };
    {
        const auto storage = open();
        storage->setAccessToken(u"access"_qs);
        storage->setRefreshToken(u"refresh"_qs);
        storage->setAccessTokenExpiresAt(expiry);
        storage->setUserData("user");
        storage->setDeviceId(u"device"_qs);
        EXPECT_EQ(storage->accessToken(), u"access"_qs) << "a write is there at once";
    }
    {
        const auto storage = open();
        EXPECT_EQ(storage->accessToken(), u"access"_qs);
        EXPECT_EQ(storage->refreshToken(), u"refresh"_qs);
        EXPECT_EQ(storage->accessTokenExpiresAt(), expiry);
        EXPECT_EQ(storage->userData(), "user");
        EXPECT_EQ(storage->deviceId(), u"device"_qs);
        storage->clear();
    }
    const auto storage = open();
    EXPECT_EQ(storage->accessToken(), std::nullopt);
    EXPECT_EQ(storage->userData(), std::nullopt);
    EXPECT_EQ(storage->deviceId(), u"device"_qs);
    EXPECT_EQ(mirrored, u"device"_qs);
}

} // namespace
