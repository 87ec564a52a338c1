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

/// The store of the dictation over the services, and the parts that follow its state. Main thread.
class Dictation {
public:
    /// The references must outlive the dictation. If `stores` is empty, the history is not written. `delivered` is
    /// called whenever a recording has been processed.
    Dictation(ServiceContainer& services, UserSettings& settings, Clock& clock, TaskRunner& tasks, ArchiveStores stores,
              std::function<void()> delivered);

    [[nodiscard]] RecordingStore& store() { return m_store; }
    [[nodiscard]] RecordingSideEffects& effects() { return m_effects; }
    [[nodiscard]] MicrophoneProbe& microphoneProbe() { return m_probe; }
    void send(const RecordingAction& action) { m_store.send(action); }

    /// Selects the microphone in the settings. Called whenever that setting changes.
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
