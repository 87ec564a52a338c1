#pragma once

#include "FaultProxy.h"
#include "Situation.h"

#include <QString>

#include <chrono>

namespace quillo::test {

/// The fault of a run.
enum class Fault {
    none,
    killConnecting,   ///< the application, before the server has answered
    killRecording,    ///< the application, while it streams
    killProcessing,   ///< the application, while it waits for the last text
    killUploading,    ///< the application, while the queue sends a recording
    killServer,       ///< and it is started again
    cutConnection,    ///< in the middle of a frame
    stallConnection,  ///< bytes stop flowing, later it is cut
    refuseConnection, ///< for some seconds
    cutUpload,        ///< the connection over which the queue sends a recording
    killSound,        ///< PulseAudio, and it is started again
    fillDisk,         ///< the disk takes a few more bytes and then none
    moveClock,        ///< the time of day jumps, and later back
    killBus,          ///< the session bus
    dayAway,          ///< the server cannot be reached for a day
};
constexpr size_t faultCount = static_cast<size_t>(Fault::dayAway) + 1;
QString nameOf(Fault fault);

/// What happens in a run. Times count from the press of the key.
struct Plan {
    int run = 0;
    Fault fault = Fault::none;
    std::chrono::milliseconds hold{0};
    std::chrono::milliseconds at{0};     ///< when it breaks
    std::chrono::milliseconds healed{0}; ///< when it is mended
    int64_t bytes = 0;                   ///< sent before a connection breaks, or left on the disk
    FaultProxy::Ending ending = FaultProxy::Ending::finish;
    std::chrono::seconds clockShift{0};
    Situation situation;

    [[nodiscard]] QString summary() const;
};

/// The plan of run `run`, from 0, of the campaign `seed`: every fault once in so many runs as there are faults, in
/// another order each time, the run without a fault last. Depends only on the arguments. With `only`, every run has
/// that fault.
Plan makePlan(uint64_t seed, int run, std::optional<Fault> only = {});

} // namespace quillo::test
