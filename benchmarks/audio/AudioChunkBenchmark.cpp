#include "Services/Microphone/AUHALCaptureContext.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>

namespace {

using namespace quillo;

/// The work of one 100 ms chunk on the audio thread: level, conversion, chunking and the hand-over to the stream, in
/// callbacks of 10 ms. The argument is the device's rate.
void chunk(benchmark::State& state) {
    const auto rate = static_cast<double>(state.range(0));
    // The stream is bounded, because nothing consumes it here.
    auto [stream, sink] = AsyncStream<AudioChunk>::make(EventExecutor::main(), 16);
    AUHALCaptureContext context(rate, sink);
    std::vector<float> samples(static_cast<size_t>(rate / 100));
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = 0.5F * std::sin(static_cast<float>(2 * std::numbers::pi * 200 * static_cast<double>(i) / rate));
    for ([[maybe_unused]] const auto iteration : state)
        for (int callback = 0; callback < 10; ++callback)
            context.handleInput(samples.data(), samples.size());
    state.SetLabel(context.statsSummary().toStdString());
}
BENCHMARK(chunk)->Arg(16000)->Arg(44100)->Arg(48000)->Arg(96000)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
