#pragma once

#include "App/Dictation/MicrophoneProbe.h"
#include "App/System/ServiceContainer.h"
#include "Concurrency/TaskRunner.h"
#include "Features/Recording/RecordingSideEffects.h"
#include "Features/Recording/RecordingStore.h"

#include <QObject>

#include <functional>
#include <memory>

namespace quillo {

/// The dictation's store over the services, and what must follow its state. Main thread.
class Dictation {
public:
    /// The references outlive the dictation. `stores` may be empty: the history is then not written. `delivered` is
    /// called whenever a recording has left the processing.
    Dictation(ServiceContainer& services, UserSettings& settings, Clock& clock, TaskRunner& tasks, ArchiveStores stores,
              std::function<void()> delivered);

    [[nodiscard]] RecordingStore& store() { return m_store; }
    [[nodiscard]] RecordingSideEffects& effects() { return m_effects; }
    [[nodiscard]] MicrophoneProbe& microphoneProbe() { return m_probe; }
    void send(const RecordingAction& action) { m_store.send(action); }

    /// Records from the microphone that the settings name. Done whenever that setting changes.
    void applyMicrophone();

private:
    [[nodiscard]] RecordingServices recordingServices(Clock& clock, ArchiveStores stores);
    [[nodiscard]] RecordingPreferences preferences() const;

    ServiceContainer& m_services;
    UserSettings& m_settings;
    MicrophoneProbe m_probe;
    RecordingSideEffects m_effects;
    RecordingStore m_store;
    Observation m_observation;
    QObject m_context; ///< ends the connections to the settings
};

} // namespace quillo
