#include "Core/LoggingService.h"
#include "Data/DataContainer.h"
#include "Services/Mock/MockAuthService.h"
#include "Services/Mock/MockNetworkMonitor.h"
#include "Services/Mock/MockTranscriptionFileClient.h"
#include "Services/Queue/PendingTranscriptionManager.h"
#include "Services/Recordings/PendingAudioFiles.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

using namespace quillo;

constexpr int waiting = 1000;

/// A thousand waiting recordings with their files and records, and a server that answers at once.
class Queue {
public:
    Queue() {
        container = DataContainer::create();
        for (int number = 0; number < waiting; ++number) {
            const auto audioId = QStringLiteral("recording-%1").arg(number);
            PendingAudioMetadata metadata;
            metadata.id = audioId;
            metadata.createdAt = clock.wallTime().addSecs(-number - 60);
            pendingAudioFiles::writeMetadata(metadata, privateFile::Durability::kernel);
            QFile audio(pendingAudioFiles::audioPath(audioId));
            if (!audio.open(QIODevice::WriteOnly) || audio.write(QByteArray(3200, '\x01')) != 3200)
                qFatal("the audio could not be written");
            const auto record = std::make_shared<TranscriptionRecord>();
            record->userId = QStringLiteral("user-1");
            record->createdAt = metadata.createdAt;
            record->status = RecordStatus::pendingTranscription;
            record->pendingAudioId = audioId;
            container->mainContext().insert(record);
        }
        container->mainContext().save();
    }

    QTemporaryDir home{QDir::homePath() + QStringLiteral("/.quillo-benchmark-XXXXXX")}; // on the disk
    bool isHome = qputenv("XDG_DATA_HOME", QFile::encodeName(home.path()));
    ManualClock clock{EventExecutor::main()};
    MockAuthService auth;
    MockNetworkMonitor network;
    MockTranscriptionFileClient client;
    Preferences preferences{home.filePath(QStringLiteral("settings.ini"))};
    std::unique_ptr<ModelContainer> container;
    std::unique_ptr<PendingTranscriptionManager> manager =
        std::make_unique<PendingTranscriptionManager>(PendingQueueServices{
            .client = client, .network = network, .auth = auth, .preferences = preferences, .clock = clock});
};

/// A pass over a queue in which no recording is due: the cost of the check every half minute.
void passWithNothingDue(benchmark::State& state) {
    Queue queue;
    queue.client.onTranscribe = [](const auto&) -> TranscriptionFileResponse {
        throw TranscriptionFileClientError::serverError(500, {});
    };
    queue.manager->start(&queue.container->mainContext());
    for ([[maybe_unused]] const auto iteration : state)
        queue.manager->processPendingIfNeeded();
    if (queue.client.calls.size() != waiting)
        state.SkipWithError("not every recording was tried once");
}
BENCHMARK(passWithNothingDue)->Unit(benchmark::kMillisecond)->Iterations(20);

/// Start-up with its repair, and the pass in which every recording gets its text.
void passWithTexts(benchmark::State& state) {
    for ([[maybe_unused]] const auto iteration : state) {
        state.PauseTiming();
        auto queue = std::make_unique<Queue>();
        state.ResumeTiming();
        queue->manager->start(&queue->container->mainContext());
        state.PauseTiming();
        if (queue->client.calls.size() != waiting)
            state.SkipWithError("not every recording was sent");
        queue.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(passWithTexts)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    LoggingService::shared().setConsoleLevel(std::nullopt);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
