#include "Core/AudioChunk.h"
#include "Services/Protocol/ServerMessageDecoding.h"
#include "Services/Protocol/ServerMessageEncoding.h"

#include <benchmark/benchmark.h>

using namespace quillo;

namespace {

void encodeAudioChunk(benchmark::State& state) {
    QByteArray chunk(AudioFormat::chunkByteSize, '\0');
    for (qsizetype index = 0; index < chunk.size(); ++index)
        chunk[index] = static_cast<char>(index * 37);
    for (auto _ : state)
        benchmark::DoNotOptimize(encoding::audioChunk(chunk));
    state.SetBytesProcessed(state.iterations() * chunk.size());
}
BENCHMARK(encodeAudioChunk)->Unit(benchmark::kMicrosecond);

void decodePartialTranscript(benchmark::State& state) {
    const QByteArray frame =
        R"({"type":"partial_transcript","data":{"text":"the quick brown fox jumps over the lazy dog",)"
        R"("language":"en","confidence":0.93,"word_count":9,"segment_start":1.5,"segment_end":4.25}})";
    SessionTexts texts;
    for (auto _ : state) {
        QStringList lines;
        benchmark::DoNotOptimize(decodeServerMessage(*ServerResponse::decode(frame), texts, lines));
    }
}
BENCHMARK(decodePartialTranscript)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
