#pragma once

#include "Concurrency/TaskRunner.h"
#include "Core/UserMessage.h"
#include "Services/Microphone/AudioServiceProtocol.h"

#include <functional>

namespace quillo {

/// Measures the microphone's level without recording. The service supports one capture at a time, so a dictation ends
/// the test. Main thread.
class MicrophoneProbe {
public:
    using OnLevel = std::function<void(float level)>;                 ///< 0 to 1
    using OnFailure = std::function<void(const UserMessage& reason)>; ///< the test has ended

    /// The references must outlive the test.
    MicrophoneProbe(AudioServiceProtocol& audio, TaskRunner& tasks) : m_audio(audio), m_tasks(tasks) {}

    /// Restarts a running test with the currently chosen microphone. Neither function is called after `stop`.
    void start(OnLevel onLevel, OnFailure onFailure);
    void stop();
    /// Ends a running test as failed with `reason`, because the microphone is needed elsewhere.
    void giveWay(const UserMessage& reason);

private:
    AudioServiceProtocol& m_audio;
    TaskRunner& m_tasks;
    TaskHandle m_listening;
    OnFailure m_onFailure;
};

} // namespace quillo
