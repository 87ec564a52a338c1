#pragma once

#include "Concurrency/Clock.h"
#include "Features/Recording/RecordingArchive.h"
#include "Platform/Applications.h"
#include "Platform/Sounds.h"
#include "Services/Auth/AuthServiceProtocol.h"
#include "Services/Auth/TokenStorageProtocol.h"
#include "Services/Desktop/PermissionServiceProtocol.h"
#include "Services/Injection/TextInjectionServiceProtocol.h"
#include "Services/Metrics/MetricsServiceProtocol.h"
#include "Services/Microphone/AudioServiceProtocol.h"
#include "Services/Network/NetworkMonitorServiceProtocol.h"
#include "Services/Socket/WebSocketServiceProtocol.h"

#include <QStringList>

#include <functional>
#include <optional>

namespace quillo {

/// The preferences of a dictation, read when it starts.
struct RecordingPreferences {
    QStringList languages; ///< codes sent to the server; empty means automatic detection
    QString primaryLanguage;
    QString secondaryLanguage;
    bool languageChosen = true;
    bool playSound = true;
    InjectionMode insertionMode = InjectionMode::paste;
    bool restoreClipboard = true;
    bool enhancedTranscription = false;
    std::optional<QString> enhancedConsentTimestamp;
    bool demoMode = false;
    bool keepAudio = true;         ///< of a finished dictation, for playback
    bool isFirstRecording = false; ///< since the installation
};

/// The services used by the recording core. All references must outlive it; everything is called on the main thread.
struct RecordingServices {
    Clock& clock;
    AudioServiceProtocol& audio;
    WebSocketServiceProtocol& webSocket;
    TextInjectionServiceProtocol& textInjection;
    TokenStorageProtocol& tokenStorage;
    AuthServiceProtocol& auth;
    PermissionServiceProtocol& permissions;
    NetworkMonitorServiceProtocol& network;
    MetricsServiceProtocol& metrics;
    Applications& applications;
    Sounds& sounds;
    std::function<RecordingPreferences()> preferences;
    ArchiveStores stores = {};
    /// Called for every dictation that ended with text, with whether its language is not among the configured ones.
    std::function<void(bool languageMismatch)> countRecording = [](bool) {};
};

} // namespace quillo
