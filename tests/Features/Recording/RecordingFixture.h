#pragma once

#include "Core/NotificationCenter.h"
#include "Data/DataContainer.h"
#include "Data/ModelContext.h"
#include "Data/TagManager.h"
#include "Features/Recording/RecordingReducer.h"
#include "Features/Recording/RecordingSideEffects.h"
#include "Features/Recording/RecordingStore.h"
#include "Services/Auth/InMemoryTokenStorage.h"
#include "Services/Mock/MockAudioService.h"
#include "Services/Mock/MockAuthService.h"
#include "Services/Mock/MockNetworkMonitor.h"
#include "Services/Mock/MockPermissionService.h"
#include "Services/Mock/MockTextInjectionService.h"
#include "Services/Mock/MockWebSocketService.h"
#include "Support/MockApplications.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

namespace quillo::test {

class MockMetrics final : public MetricsServiceProtocol {
public:
    QStringList events;
    void track(const QString& event, const QVariantMap&) override { events.append(event); }
};

class MockSounds final : public Sounds {
public:
    bool play(const QString&, double) override { return true; }
};

/// The recording core over doubles, on a clock that the test turns. Nothing here waits for real time.
class RecordingFixture : public testing::Test {
protected:
    using Status = RecordingState;

    RecordingFixture() {
        tokens.setAccessToken(u"token"_qs);
        posted = QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                                  [this](const QString& name) { notifications.append(name); });
        settle();
    }
    ~RecordingFixture() override {
        QObject::disconnect(posted);
        effects.reset();
        settle();
        store.reset();
        settle();
    }

    static void settle() { EventExecutor::main().drain(); }
    void send(const RecordingAction& action) {
        store->send(action);
        settle();
    }
    void start() { send(action::StartRecording{}); }
    void stop() { send(action::StopRecording{}); }
    void cancel() { send(action::CancelRecording{}); }
    void serverSays(ServerMessage message) {
        webSocket.yield(std::move(message));
        settle();
    }
    void serverFails(const char* code) { serverSays(server::Error{QString::fromLatin1(code), u"why"_qs}); }
    void loseConnection() {
        webSocket.lose(u"gone"_qs);
        settle();
    }
    /// The microphone goes; another cannot be opened unless `isReplaceable`.
    void loseMicrophone(bool isReplaceable = false) {
        if (!isReplaceable)
            audio.nextStartError = AudioServiceError(AudioServiceError::Code::deviceSetupFailed);
        audio.loseDevice();
        settle();
    }
    void speak(int chunks = 1) {
        for (int i = 0; i < chunks; ++i) {
            audio.speak();
            settle();
        }
    }
    void startSession() { serverSays(server::SessionStarted{u"s1"_qs}); }
    void endSession(const QString& text) {
        server::SessionEnded ended;
        ended.text = text;
        serverSays(ended);
    }
    /// The dictation has ended with exactly this text in the target.
    void expectInserted(const QString& text) {
        ASSERT_EQ(injection.calls.size(), 1U);
        EXPECT_EQ(injection.calls.front().text, text);
    }
    /// Up to a recording with five chunks heard, half a second after the key.
    void record() {
        start();
        speak(2);
        startSession();
        speak(3);
        clock.advance(std::chrono::milliseconds(500));
    }
    /// A dictation from the key to the text, whatever went before it.
    void expectDictationWorks() {
        injection.calls.clear();
        record();
        ASSERT_TRUE(is<Status::Recording>()) << description();
        stop();
        endSession(u"works"_qs);
        expectInserted(u"works"_qs);
        expectQuiet();
        EXPECT_TRUE(is<Status::Idle>()) << description();
    }
    /// Nothing of a dictation is left: no microphone, socket, run or effect.
    void expectQuiet() {
        EXPECT_FALSE(audio.isCapturing());
        EXPECT_EQ(audio.starts(), audio.ends());
        EXPECT_FALSE(webSocket.isConnected());
        EXPECT_FALSE(effects->isBusy());
        EXPECT_TRUE(store->activeTasks().empty());
    }
    template <class T>
    [[nodiscard]] bool is() const {
        return store->state().status.is<T>();
    }
    template <class T>
    [[nodiscard]] bool failedWith() const {
        const auto* error = store->state().status.error();
        return error && error->is<T>();
    }
    [[nodiscard]] std::string description() const { return store->state().status.description().toStdString(); }

    /// The history's records, oldest first.
    [[nodiscard]] QList<RecordPointer> records() const { return history->fetch(RecordQuery{}); }
    /// Removes all records and their audio.
    void forgetRecords() {
        for (const auto& record : records()) {
            AudioFileWriter::deleteFiles(record->effectiveAudioId().value_or(QString()));
            history->remove(record);
        }
        history->save();
    }
    /// The audio on disk of `recordingId`.
    [[nodiscard]] static QByteArray audioOnDisk(const QString& recordingId) {
        QFile file(AudioFileWriter::pendingAudioDirectory() + QLatin1Char('/') + recordingId + u".pcm"_qs);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    [[nodiscard]] static QStringList audioFiles() {
        return QDir(AudioFileWriter::pendingAudioDirectory()).entryList(QDir::Files, QDir::Name);
    }

    /// The user's data folder.
    struct DataFolder : QTemporaryDir {
        DataFolder() { qputenv("XDG_DATA_HOME", path().toLocal8Bit()); }
    } data;
    std::unique_ptr<ModelContainer> container = DataContainer::create();
    ModelContext* history = &container->mainContext();
    TagManager tags{history};
    int counted = 0;
    ManualClock clock{EventExecutor::main()};
    MockAudioService audio;
    MockWebSocketService webSocket;
    MockTextInjectionService injection;
    InMemoryTokenStorage tokens;
    MockAuthService auth;
    MockPermissionService permissions;
    MockNetworkMonitor network;
    MockMetrics metrics;
    MockApplications applications;
    MockSounds sounds;
    RecordingPreferences preferences;
    QStringList notifications;
    QMetaObject::Connection posted;
    /// What a dictation did not expect fails its test, unless the test provokes it.
    TaskRunner::Report report = [](const QString& task, const QString& error) {
        ADD_FAILURE() << task.toStdString() << " threw " << error.toStdString();
    };
    std::unique_ptr<RecordingSideEffects> effects = std::make_unique<RecordingSideEffects>(
        RecordingServices{clock, audio, webSocket, injection, tokens, auth, permissions, network, metrics, applications,
                          sounds, [this] { return preferences; }, ArchiveStores{history, &tags},
                          [this](bool) { ++counted; }},
        [this](const QString& task, const QString& error) { report(task, error); });
    QStringList actions; ///< the names of all that were reduced, but for chunks and levels
    std::unique_ptr<RecordingStore> store = std::make_unique<RecordingStore>(
        EventExecutor::main(), RecordingState{},
        [this, reducer = RecordingReducer([this] { return clock.wallTime(); })](const RecordingState& state,
                                                                                const RecordingAction& action) {
            if (!std::holds_alternative<action::AudioChunkCaptured>(action) &&
                !std::holds_alternative<action::AudioLevelUpdated>(action))
                actions.append(actionName(action));
            return reducer.reduce(state, action);
        },
        [this](RecordingEffect effect) { return effects->handle(std::move(effect)); },
        [](const QString& task, const QString& error) {
            ADD_FAILURE() << task.toStdString() << " threw " << error.toStdString();
        });
};

} // namespace quillo::test
