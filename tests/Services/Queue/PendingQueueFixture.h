#pragma once

#include "Core/NotificationCenter.h"
#include "Data/DataContainer.h"
#include "Services/Mock/MockAuthService.h"
#include "Services/Mock/MockNetworkMonitor.h"
#include "Services/Mock/MockTranscriptionFileClient.h"
#include "Services/Queue/PendingTranscriptionManager.h"
#include "Services/Recordings/RecordingsFolder.h"

#include <gtest/gtest.h>

namespace quillo::test {

using namespace std::chrono_literals;

/// The queue over the real store and real files in a folder of its own, a scripted server, and a clock that the test
/// turns.
class PendingQueueFixture : public testing::Test {
protected:
    PendingQueueFixture() {
        container = DataContainer::create();
        posted = QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                                  [this](const QString& name, const QVariantMap& info) {
                                      if (name == notification::pendingRecordRecovered)
                                          recovered.append(info.value(u"recordId"_qs).toString());
                                  });
    }
    ~PendingQueueFixture() override {
        QObject::disconnect(posted);
        manager.reset();
        release();
    }

    ModelContext& context() const { return container->mainContext(); }

    /// A new run of the program over what the last one left.
    void start() {
        manager.reset();
        container.reset();
        container = DataContainer::create();
        makeManager();
        manager->start(&context());
    }
    void makeManager() {
        manager = std::make_unique<PendingTranscriptionManager>(PendingQueueServices{.client = client,
                                                                                     .network = network,
                                                                                     .auth = auth,
                                                                                     .preferences = preferences,
                                                                                     .clock = clock,
                                                                                     .server = server});
    }

    /// A waiting recording with its record; returns the record's id.
    QUuid addPending(const QString& audio, const std::function<void(RecordFields&)>& change = {}) {
        folder.add(RecordingsFolder::metadata(audio, clock.wallTime().addSecs(-60)), QByteArray(32'000, '\x01'));
        const auto record = std::make_shared<TranscriptionRecord>();
        record->userId = u"user-1"_qs;
        record->createdAt = clock.wallTime().addSecs(-60);
        record->status = RecordStatus::pendingTranscription;
        record->pendingAudioId = audio;
        record->clientRecordingId = audio;
        if (change)
            change(*record);
        context().insert(record);
        context().save();
        return record->id;
    }

    /// Ends what `addPending` began.
    void removePending(const QUuid& id, const QString& audio) {
        context().remove(context().record(id));
        context().save();
        pendingAudioFiles::deleteFiles(audio);
    }

    /// Lets the calls that `client` holds end.
    void release() {
        client.release();
        EventExecutor::main().drain();
    }

    /// As the file has it.
    [[nodiscard]] RecordFields stored(const QUuid& id) const {
        const auto record = context().record(id);
        EXPECT_TRUE(record) << "no such record";
        return record ? *record : RecordFields();
    }

    static void post(const QString& name, const QVariantMap& info = {}) {
        NotificationCenter::shared().post(name, info);
        EventExecutor::main().drain();
    }

    void failWith(const TranscriptionFileClientError& error) {
        client.onTranscribe = [error](const auto&) -> TranscriptionFileResponse { throw error; };
        client.onDiarize = [error](const auto&) -> DiarizeResponse { throw error; };
    }
    void answerWith(const QString& text) {
        client.onTranscribe = [text](const auto&) { return TranscriptionFileResponse{.text = text}; };
    }

    const QString audioId = u"5f7c1c1e-0000-4000-8000-000000000001"_qs;
    RecordingsFolder folder;
    ManualClock clock{EventExecutor::main()};
    MockAuthService auth;
    MockNetworkMonitor network;
    MockTranscriptionFileClient client;
    QString server = u"local"_qs;
    Preferences preferences{folder.outside(u"settings.ini"_qs)};
    std::unique_ptr<ModelContainer> container;
    std::unique_ptr<PendingTranscriptionManager> manager;
    QStringList recovered; ///< record ids that were announced
    QMetaObject::Connection posted;
};

} // namespace quillo::test
