#include "Features/Recording/RecordingReducer.h"
#include "Features/Recording/RecordingStore.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

namespace {

using namespace quillo;

RecordingState recording() {
    RecordingState state;
    state.status = RecordingState::Recording{};
    return state;
}

RecordingReducer reducer() {
    return RecordingReducer([] { return QDateTime(); });
}

void reduceLevel(benchmark::State& figures) {
    const auto machine = reducer();
    auto state = recording();
    float level = 0;
    for (auto _ : figures) {
        level = level > 0.5F ? 0.1F : 0.9F;
        state = machine.reduce(state, action::AudioLevelUpdated{level}).state;
    }
}
BENCHMARK(reduceLevel);

void reduceChunk(benchmark::State& figures) {
    const auto machine = reducer();
    auto state = recording();
    const RecordingAction chunk = action::AudioChunkCaptured{{.sequence = 0, .data = QByteArray(3200, '\0')}};
    for (auto _ : figures)
        state = machine.reduce(state, chunk).state;
}
BENCHMARK(reduceChunk);

void send(benchmark::State& figures, bool hasEffect) {
    auto& executor = EventExecutor::main();
    RecordingStore store(
        executor, recording(),
        [machine = reducer(), hasEffect](const RecordingState& state, const RecordingAction& action) {
            auto next = machine.reduce(state, action);
            if (hasEffect)
                next.effect = effect::EndDictation{};
            return next;
        },
        [](RecordingEffect) -> Task<ActionStream<RecordingAction>> { co_return std::nullopt; },
        [](const QString&, const QString&) {});
    float level = 0;
    for (auto _ : figures) {
        level = level > 0.5F ? 0.1F : 0.9F;
        store.send(action::AudioLevelUpdated{level});
        // The measured time includes the effect's task, so that the queue does not grow with the iterations.
        executor.drain();
    }
}
BENCHMARK_CAPTURE(send, withoutEffect, false);
BENCHMARK_CAPTURE(send, withEffect, true);

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
