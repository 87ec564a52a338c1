#include "App/Dictation/Dictation.h"

#include "Core/Log.h"
#include "Features/Recording/RecordingReducer.h"

namespace quillo {

namespace {

RecordingStore::ReduceFunction reducer(Clock& clock) {
    return [reducer = RecordingReducer([&clock] { return clock.wallTime(); })](const RecordingState& state,
                                                                               const RecordingAction& action) {
        if (std::holds_alternative<action::StartRecording>(action) && state.status.isActive())
            appLog(QStringLiteral("⚠️ startRecording already in progress, ignoring duplicate call"), LogLevel::warn,
                   QStringLiteral("Recording"));
        return reducer.reduce(state, action);
    };
}

} // namespace

Dictation::Dictation(ServiceContainer& services, UserSettings& settings, Clock& clock, TaskRunner& tasks,
                     ArchiveStores stores, std::function<void()> delivered)
    : m_services(services), m_settings(settings), m_probe(*services.audioService, tasks),
      m_effects(recordingServices(clock, stores)),
      m_store(
          EventExecutor::main(), RecordingState(), reducer(clock),
          [this](RecordingEffect effect) {
              // Only one capture at a time is possible, and the dictation has priority.
              if (std::holds_alternative<effect::BeginDictation>(effect))
                  m_probe.giveWay({QStringLiteral("welcome.microphone.dictating")});
              return m_effects.handle(std::move(effect));
          },
          [](const QString& name, const QString& error) {
              appLog(QStringLiteral("❌ Unexpected failure in '%1': %2").arg(name, error), LogLevel::error,
                     QStringLiteral("App"));
          }) {
    m_observation = m_store.observe(
        [this, delivered = std::move(delivered)](const RecordingState& before, const RecordingState& after) {
            if (before.status == after.status)
                return;
            m_services.hotkeyService->setRecordingActive(after.status.isActive());
            // Not when the next dictation has begun: nothing may keep its microphone waiting.
            if (before.status.is<RecordingState::Processing>() && !after.status.isUnderWay())
                delivered();
        });
    applyMicrophone();
    QObject::connect(&m_settings, &UserSettings::changed, &m_context, [this](const QString& key) {
        if (key == QStringLiteral("selectedMicrophoneId"))
            applyMicrophone();
    });
    QObject::connect(&m_settings, &UserSettings::userChanged, &m_context, [this] { applyMicrophone(); });
}

RecordingServices Dictation::recordingServices(Clock& clock, ArchiveStores stores) {
    return {clock,
            *m_services.audioService,
            *m_services.webSocketService,
            *m_services.textInjectionService,
            *m_services.tokenStorage,
            *m_services.authService,
            *m_services.permissionService,
            *m_services.networkMonitor,
            *m_services.metricsService,
            *m_services.applications,
            *m_services.sounds,
            [this] { return preferences(); },
            stores,
            [this](bool languageMismatch) { m_settings.countRecording(languageMismatch); }};
}

RecordingPreferences Dictation::preferences() const {
    RecordingPreferences preferences;
    preferences.languages = m_settings.dictationLanguages();
    preferences.languageChosen = m_settings.hasChosenLanguage();
    preferences.playSound = m_settings.playSound();
    preferences.insertionMode = m_settings.insertionMode();
    preferences.restoreClipboard = m_settings.restoreClipboard();
    preferences.enhancedTranscription =
        m_settings.enhancedTranscriptionEnabled() && m_settings.hasValidEnhancedConsent();
    preferences.enhancedConsentTimestamp = m_settings.enhancedConsentTimestamp();
    preferences.demoMode = m_settings.useDemoMode();
    preferences.primaryLanguage = m_settings.primaryLanguage();
    preferences.secondaryLanguage = m_settings.secondaryLanguage();
    preferences.keepAudio = m_settings.keepAudio();
    preferences.isFirstRecording = m_settings.totalRecordingsCount() == 0;
    return preferences;
}

void Dictation::applyMicrophone() {
    m_services.audioService->setPreferredInputDeviceID(m_settings.selectedMicrophoneId());
}

} // namespace quillo
