#include "Services/Auth/AuthFixture.h"
#include "Services/Auth/KeychainTokenStorage.h"

#include <condition_variable>
#include <mutex>

using namespace quillo;
using namespace quillo::test;

namespace {

/// A keyring that answers when the test lets it, and outlives the programs that use it.
struct Keyring {
    std::mutex mutex;
    std::condition_variable opened;
    std::map<QString, QByteArray> values;
    bool isBusy = false;   ///< takes questions, and answers later
    bool isLocked = false; ///< answers that it is
    bool isSilent = false; ///< answers no read
    bool isFull = false;   ///< refuses writes
    std::function<void()> changed;

    template <class Change>
    void set(Change change) {
        const std::lock_guard lock(mutex);
        change();
        opened.notify_all();
    }
    QByteArray get(const QString& key) {
        const std::lock_guard lock(mutex);
        const auto found = values.find(key);
        return found == values.end() ? QByteArray() : found->second;
    }
};

class KeyringStore final : public SecretStore {
public:
    explicit KeyringStore(Keyring& keyring) : m_keyring(keyring) {}
    bool isAvailable() override { return !isLocked(); }
    bool isLocked() override {
        return run([this] { return m_keyring.isLocked; }) || m_isSilent;
    }
    bool reopen() override {
        m_isSilent = false;
        return !isLocked();
    }
    std::optional<QByteArray> read(const QString& key) override {
        return run([&]() -> std::optional<QByteArray> {
            if (m_isSilent = m_keyring.isSilent; m_isSilent)
                throw SecretStoreSilent(key.toStdString());
            const auto found = m_keyring.values.find(key);
            return found == m_keyring.values.end() ? std::nullopt : std::optional(found->second);
        });
    }
    bool write(const QString& key, const QByteArray& value) override {
        return run([&] { return !m_keyring.isFull && (m_keyring.values[key] = value, true); });
    }
    bool remove(const QString& key) override {
        return run([&] { return m_keyring.values.erase(key), true; });
    }
    void onChange(std::function<void()> changed) override { m_keyring.changed = std::move(changed); }

private:
    template <class Action>
    std::invoke_result_t<Action> run(Action action) {
        std::unique_lock lock(m_keyring.mutex);
        m_keyring.opened.wait(lock, [this] { return !m_keyring.isBusy; });
        return action();
    }
    Keyring& m_keyring;
    bool m_isSilent = false;
};

class StoredSessionTest : public AuthFixture {
protected:
    StoredSessionTest() { answer = ok(anonymousJson); }
    ~StoredSessionTest() override { close(); }

    /// Begins a run of the program, whose server is `host`.
    KeychainTokenStorage& open(const QString& host = u"a.example.org"_qs) {
        m_service.reset();
        keychain.reset();
        keychain = std::make_shared<KeychainTokenStorage>(std::make_unique<KeyringStore>(keyring),
                                                          KeychainTokenStorage::DeviceIdMirror{}, host,
                                                          std::chrono::milliseconds(10));
        storage = keychain;
        loadStorage = [storage = keychain] { return storage->load(); };
        keychain->onUnlocked = [this] { restored.emplace(ignore(service().checkExistingSession())); };
        return *keychain;
    }
    static Task<> ignore(Task<bool> task) { co_await task; }
    /// What was written, when all of it was.
    void close() {
        m_service.reset();
        storage = std::make_shared<InMemoryTokenStorage>();
        loadStorage = {};
        keychain.reset();
    }
    /// Signs an account in and ends the program.
    void storeAccount() {
        await(open().load());
        storeSession(3600);
        close();
    }
    QByteArray stored(const QString& key) { return keyring.get(key); }
    [[nodiscard]] QString user() {
        const auto current = service().currentUser();
        return current ? *current->email : QString();
    }

    Keyring keyring;
    std::shared_ptr<KeychainTokenStorage> keychain;
    std::optional<Ending> restored;
};

TEST_F(StoredSessionTest, WhatAsksBeforeTheKeyringAnswersWaitsForTheStoredSession) {
    storeAccount();
    keyring.isBusy = true;
    open();
    const Ending dictation(service().createAnonymousSession());
    const Ending upload(service().refreshAccessToken());
    const Ending check(ignore(service().checkExistingSession()));
    EventExecutor::main().drain();
    EXPECT_FALSE(dictation.isThere());
    keyring.set([this] { keyring.isBusy = false; });
    for (const auto* const ending : {&dictation, &upload, &check})
        EXPECT_EQ(ending->text(), "ok");
    EXPECT_EQ(user(), u"a@example.org"_qs);
    EXPECT_TRUE(server.requests.isEmpty());
    EXPECT_EQ(log.count("Checking for existing session"), 1);
    close();
    EXPECT_EQ(stored(tokenKey::accessToken), "old-access");
}

TEST_F(StoredSessionTest, ALockedKeyringKeepsItsSessionWhateverIsMadeMeanwhile) {
    for (const bool isSilent : {false, true}) {
        storeAccount();
        (isSilent ? keyring.isSilent : keyring.isLocked) = true;
        open();
        answer.clear();
        EXPECT_FALSE(await(service().checkExistingSession()));
        EXPECT_TRUE(keychain->isLocked());
        const Ending anonymous(service().createAnonymousSession());
        const auto asked = server.requests.size();
        ASSERT_TRUE(waitUntil([&] { return requestsOf("/auth/anonymous") > 0 && server.requests.size() >= asked; }));
        keyring.set([this] { keyring.isLocked = keyring.isSilent = false; });
        // Nothing tells that a keyring has become quicker; it is asked again.
        ASSERT_TRUE(waitUntil([&] { return !keychain->isLocked() && restored && restored->isThere(); }));
        server.answerAll(ok(anonymousJson));
        EXPECT_EQ(anonymous.text(), "ok");
        EXPECT_EQ(user(), u"a@example.org"_qs);
        close();
        EXPECT_EQ(stored(tokenKey::accessToken), "old-access");
        restored.reset();
        server.requests.clear();
    }
}

TEST_F(StoredSessionTest, AKeyringThatAppearsLaterHoldsTheAccountOrGetsTheNewOne) {
    for (const bool signsIn : {false, true}) {
        storeAccount();
        const auto inKeyring = std::exchange(keyring.values, {}); // what is read instead comes from the file
        await(open().load());
        storeSession(60, !signsIn);
        storage->setAccessToken(u"meanwhile"_qs);
        close();
        auto& opened = open();
        await(opened.load());
        EXPECT_EQ(opened.accessToken(), u"meanwhile"_qs);
        keyring.set([&] { keyring.values = inKeyring; });
        keyring.changed();
        ASSERT_TRUE(waitUntil([&] { return restored && restored->isThere(); }));
        EXPECT_EQ(opened.accessToken(), signsIn ? u"meanwhile"_qs : u"old-access"_qs);
        close();
        EXPECT_EQ(stored(tokenKey::accessToken), signsIn ? "meanwhile" : "old-access");
        restored.reset();
        keyring.values.clear();
    }
}

TEST_F(StoredSessionTest, OfWhatWasSetBeforeTheStoreWasReadOneSessionWinsWhole) {
    const auto store = [this](const char* access, bool isAnonymous) {
        return [this, access, isAnonymous] {
            storeSession(60, isAnonymous);
            storage->setAccessToken(QString::fromLatin1(access));
        };
    };
    // What happens meanwhile, and the tokens that win.
    const std::tuple<const char*, std::function<void()>, const char*, const char*> cases[] = {
        {"nothing", [] {}, "old-access", "old-refresh"},
        {"an anonymous session", store("anonymous", true), "old-access", "old-refresh"},
        {"one value", [this] { storage->setRefreshToken(u"newer"_qs); }, "old-access", "old-refresh"},
        {"an account", store("account", false), "account", "old-refresh"},
        {"a sign-out", [this] { storage->clear(); }, "", ""},
        {"an anonymous session after a sign-out",
         [this, anonymous = store("anonymous", true)] {
             storage->clear();
             anonymous();
         },
         "anonymous", "old-refresh"},
    };
    for (const auto& [name, happens, access, refresh] : cases) {
        storeAccount();
        auto& opened = open();
        happens();
        await(opened.load());
        EXPECT_EQ(opened.accessToken().value_or(QString()), QString::fromLatin1(access)) << name;
        close();
        EXPECT_EQ(stored(tokenKey::accessToken), access) << name;
        EXPECT_EQ(stored(tokenKey::refreshToken), refresh) << name;
    }
}

TEST_F(StoredSessionTest, ASessionBelongsToTheServerThatIssuedIt) {
    storeAccount();
    open(u"b.example.org:8443"_qs);
    EXPECT_FALSE(await(service().checkExistingSession()));
    EXPECT_EQ(outcome(service().createAnonymousSession()), "ok");
    service().logout();
    EXPECT_EQ(outcome(service().createAnonymousSession()), "ok");
    const auto device = storage->deviceId();
    for (const auto& request : server.requests)
        EXPECT_FALSE((request.head + request.body).contains("old-")) << "sent to a server that did not issue it";
    close();
    EXPECT_EQ(stored(tokenKey::accessToken), "old-access");
    EXPECT_EQ(stored(tokenKey::accessToken + u"@b.example.org:8443"_qs), "new-access");
    open();
    EXPECT_TRUE(await(service().checkExistingSession()));
    EXPECT_EQ(user(), u"a@example.org"_qs);
    EXPECT_NE(storage->deviceId(), device);
    open(u"b.example.org:8443"_qs);
    EXPECT_TRUE(await(service().checkExistingSession()));
    EXPECT_EQ(storage->deviceId(), device);
    close();

    // A session from before servers were noted is that of the one that is asked first.
    keyring.values.erase(tokenKey::issuer);
    open();
    EXPECT_TRUE(await(service().checkExistingSession()));
    close();
    EXPECT_EQ(stored(tokenKey::issuer), "a.example.org");
}

TEST_F(StoredSessionTest, AWriteThatFailedIsMadeUpFor) {
    storeAccount();
    await(open().load());
    keyring.set([this] { keyring.isFull = true; });
    storage->setRefreshToken(u"next"_qs);
    ASSERT_TRUE(waitUntil([&] { return log.count("Keychain write failed for com.quillospeech.refreshToken") >= 1; }));
    EXPECT_EQ(stored(tokenKey::refreshToken), "old-refresh");
    keyring.set([this] { keyring.isFull = false; });
    EXPECT_TRUE(waitUntil([&] { return stored(tokenKey::refreshToken) == "next"; }));
}

TEST_F(StoredSessionTest, TheUserIsThereBeforeItsTokenIsRefreshed) {
    storeAccount();
    await(open().load());
    storeSession(0);
    answer.clear(); // the server takes the request and says nothing
    const Ending check(ignore(service().checkExistingSession()));
    ASSERT_TRUE(waitUntil([&] { return tokenRequests() == 1; }));
    EXPECT_EQ(user(), u"a@example.org"_qs);
    EXPECT_TRUE(service().isAuthenticated());
    server.answerAll(ok(tokensJson));
    EXPECT_EQ(check.text(), "ok");
}

} // namespace
