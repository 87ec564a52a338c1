#pragma once

#include "Concurrency/TaskRunner.h"
#include "Services/Microphone/AudioServiceProtocol.h"

#include <functional>

namespace quillo {

/// Listens to the microphone and tells how loud it is; nothing is kept. One capture at a time is all that the service
/// has, so a test gives way to a dictation. Main thread.
class MicrophoneProbe {
public:
    using OnLevel = std::function<void(float level)>;             ///< 0 to 1
    using OnFailure = std::function<void(const QString& reason)>; ///< the test has ended by itself

    /// The references outlive the test.
    MicrophoneProbe(AudioServiceProtocol& audio, TaskRunner& tasks) : m_audio(audio), m_tasks(tasks) {}

    /// A test under way begins anew, with the microphone that is chosen now. Neither function is called after `stop`.
    void start(OnLevel onLevel, OnFailure onFailure);
    void stop();
    /// Ends a test under way as a failure, for `reason`: somebody else needs the microphone.
    void giveWay(const QString& reason);

private:
    AudioServiceProtocol& m_audio;
    TaskRunner& m_tasks;
    TaskHandle m_listening;
    OnFailure m_onFailure;
};

} // namespace quillo
