#include "Services/Recordings/AudioFileWriter.h"

#include "Core/AudioChunk.h"
#include "Core/LoggingService.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

using namespace quillo;

/// The cost of a 100 ms chunk on the thread that stores it: the write, while the disk is synchronised in the
/// background.
void appendChunk(benchmark::State& state) {
    AudioFileWriter writer(QStringLiteral("benchmark"));
    writer.startWriting();
    const QByteArray chunk(AudioFormat::chunkByteSize, '\x21');
    for ([[maybe_unused]] const auto iteration : state)
        if (!writer.writeChunk(chunk))
            state.SkipWithError("the disk refused");
    writer.deleteFiles();
}
// Limit the file to what the disk of a small machine holds.
BENCHMARK(appendChunk)->Unit(benchmark::kMicrosecond)->Iterations(100'000);

void mixOneSecond(benchmark::State& state) {
    const QByteArray mic(32'000, '\x21');
    const QByteArray system(32'000, '\x7f');
    for ([[maybe_unused]] const auto iteration : state)
        benchmark::DoNotOptimize(AudioFileWriter::mixPCMStreams(mic, system));
}
BENCHMARK(mixOneSecond)->Unit(benchmark::kMicrosecond);

void startAndFinish(benchmark::State& state) {
    for ([[maybe_unused]] const auto iteration : state) {
        AudioFileWriter writer(QStringLiteral("benchmark"));
        writer.startWriting();
        PendingAudioMetadata metadata;
        metadata.id = QStringLiteral("benchmark");
        metadata.createdAt = QDateTime::currentDateTimeUtc();
        writer.saveMetadata(metadata);
        state.PauseTiming();
        writer.deleteFiles();
        state.ResumeTiming();
    }
}
BENCHMARK(startAndFinish)->Unit(benchmark::kMicrosecond)->Iterations(200);

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    LoggingService::shared().setConsoleLevel(std::nullopt);
    const QTemporaryDir home(QDir::homePath() +
                             QStringLiteral("/.quillo-benchmark-XXXXXX")); // on the disk, not in memory
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.path()));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
