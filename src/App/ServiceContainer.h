#pragma once

#include "Concurrency/Clock.h"
#include "Core/ServerEnvironment.h"
#include "Platform/Accessibility.h"
#include "Platform/Applications.h"
#include "Platform/AudioHardware.h"
#include "Platform/KeyEvents.h"
#include "Platform/KeyInjector.h"
#include "Platform/Pasteboard.h"
#include "Platform/SecretStore.h"
#include "Platform/Sounds.h"
#include "Services/AudioServiceProtocol.h"
#include "Services/Auth/AuthService.h"
#include "Services/Auth/TokenStorageProtocol.h"
#include "Services/HotkeyService.h"
#include "Services/MetricsServiceProtocol.h"
#include "Services/NetworkMonitorServiceProtocol.h"
#include "Services/PermissionServiceProtocol.h"
#include "Services/TextInjectionService.h"
#include "Services/TranscriptionFileClient.h"
#include "Services/TrustedNetwork.h"
#include "Services/UserSettings.h"
#include "Services/WebSocketServiceProtocol.h"

#include <memory>

namespace quillo {

/// One instance of each service and of the desktop's adapters below them. Built once at start, on the main thread, in
/// this order; destroyed in the reverse one.
struct ServiceContainer {
    ServiceContainer(Clock& clock, UserSettings& settings, const ServerEnvironment& environment);
    ~ServiceContainer();
    ServiceContainer(const ServiceContainer&) = delete;
    ServiceContainer& operator=(const ServiceContainer&) = delete;

    // The desktop. What it does not offer is a stand-in that says "not available".
    std::unique_ptr<AudioHardware> audioHardware;
    std::unique_ptr<KeyEventSource> keyEvents;
    std::unique_ptr<KeyInjector> keyInjector;
    std::unique_ptr<Pasteboard> pasteboard;
    std::unique_ptr<Applications> applications;
    std::unique_ptr<Accessibility> accessibility;
    std::unique_ptr<Sounds> sounds;
    std::unique_ptr<SecretStore> secrets;

    // The services.
    std::unique_ptr<AudioServiceProtocol> audioService;
    std::shared_ptr<TokenStorageProtocol> tokenStorage;
    std::shared_ptr<TrustedNetwork> trust;
    std::unique_ptr<WebSocketServiceProtocol> webSocketService;
    std::unique_ptr<TextInjectionService> textInjectionService;
    std::unique_ptr<PermissionServiceProtocol> permissionService;
    std::unique_ptr<HotkeyService> hotkeyService;
    std::unique_ptr<AuthService> authService;
    std::unique_ptr<TranscriptionFileClientProtocol> fileClient;
    std::unique_ptr<NetworkMonitorServiceProtocol> networkMonitor;
    std::unique_ptr<MetricsServiceProtocol> metricsService;

private:
    void connectX11();
    void connectWayland();
};

} // namespace quillo
