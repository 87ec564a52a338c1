#pragma once

#include "Concurrency/Clock.h"
#include "Features/Recording/RecordingReducer.h"
#include "Features/Recording/RecordingStore.h"

#include <vector>

namespace quillo::test {

/// The real store and reducer without side effects, on a manual clock. Remembers what was sent.
struct RecordingFixture {
    ManualClock clock{EventExecutor::main()};
    RecordingReducer reducer{[this] { return clock.wallTime(); }};
    std::vector<QString> sent;
    RecordingStore store{EventExecutor::main(),
                         RecordingState(),
                         [this](const RecordingState& state, const RecordingAction& action) {
                             sent.push_back(actionName(action));
                             return reducer.reduce(state, action);
                         },
                         {},
                         [](const QString&, const QString&) {}};

    void send(std::initializer_list<RecordingAction> actions) {
        for (const auto& action : actions)
            store.send(action);
        // Views are notified a moment after the state has changed.
        EventExecutor::main().drain();
    }
    /// Into the status `recording`.
    void record() { send({action::StartRecording{}, action::SessionStarted{u"session"_qs, false}}); }
};

} // namespace quillo::test
