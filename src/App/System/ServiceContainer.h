#pragma once

#include "Concurrency/Clock.h"
#include "Core/ServerEnvironment.h"
#include "Platform/Accessibility.h"
#include "Platform/Applications.h"
#include "Platform/AudioHardware.h"
#include "Platform/KeyEvents.h"
#include "Platform/KeyInjector.h"
#include "Platform/LoginItem.h"
#include "Platform/Pasteboard.h"
#include "Platform/SessionWatch.h"
#include "Platform/Sounds.h"
#include "Services/Auth/AuthServiceProtocol.h"
#include "Services/Auth/KeychainTokenStorage.h"
#include "Services/Desktop/PermissionServiceProtocol.h"
#include "Services/Hotkeys/HotkeyServiceProtocol.h"
#include "Services/Injection/TextInjectionServiceProtocol.h"
#include "Services/Metrics/MetricsServiceProtocol.h"
#include "Services/Microphone/AudioServiceProtocol.h"
#include "Services/Network/NetworkMonitorServiceProtocol.h"
#include "Services/Network/TrustedNetwork.h"
#include "Services/Settings/UserSettings.h"
#include "Services/Socket/WebSocketServiceProtocol.h"
#include "Services/Upload/TranscriptionFileClientProtocol.h"

#include <QNetworkRequest>

#include <functional>
#include <memory>

namespace quillo {

/// One instance of each service and of the desktop's adapters. Built once at start on the main thread in this order,
/// destroyed in reverse order.
struct ServiceContainer {
    /// Whether the environment requests services that need neither desktop nor server ("USE_MOCK_SERVICES").
    [[nodiscard]] static bool usesMockServices();

    /// Where an address of `environment` is now: our user's own server may have moved to another port.
    using CurrentAddress = std::function<QUrl(const QUrl&)>;

    ServiceContainer(
        Clock& clock, UserSettings& settings, const ServerEnvironment& environment,
        const CurrentAddress& currentAddress = [](const QUrl& url) { return url; });
    ~ServiceContainer();
    ServiceContainer(const ServiceContainer&) = delete;
    ServiceContainer& operator=(const ServiceContainer&) = delete;

    // The desktop's adapters; null objects report "not available" where it lacks something.
    std::unique_ptr<AudioHardware> audioHardware;
    std::unique_ptr<KeyEventSource> keyEvents;
    std::unique_ptr<KeyInjector> keyInjector;
    std::unique_ptr<Pasteboard> pasteboard;
    std::unique_ptr<Applications> applications;
    std::unique_ptr<Accessibility> accessibility;
    std::unique_ptr<Sounds> sounds;
    std::unique_ptr<LoginItem> loginItem;       ///< null with mock services
    std::unique_ptr<SessionWatch> sessionWatch; ///< null with mock services

    // The services.
    std::unique_ptr<AudioServiceProtocol> audioService;
    std::shared_ptr<TokenStorageProtocol> tokenStorage;
    std::shared_ptr<KeychainTokenStorage> keychain; ///< the same object; null with mock services
    std::shared_ptr<TrustedNetwork> trust;
    std::function<void(QNetworkRequest&)> prepareRequest; ///< for the server; empty with mock services
    std::unique_ptr<WebSocketServiceProtocol> webSocketService;
    std::unique_ptr<TextInjectionServiceProtocol> textInjectionService;
    std::unique_ptr<PermissionServiceProtocol> permissionService;
    std::unique_ptr<HotkeyServiceProtocol> hotkeyService;
    std::unique_ptr<AuthServiceProtocol> authService;
    std::unique_ptr<TranscriptionFileClientProtocol> fileClient;
    std::unique_ptr<NetworkMonitorServiceProtocol> networkMonitor;
    std::unique_ptr<MetricsServiceProtocol> metricsService;

private:
    void useDesktop(Clock& clock, UserSettings& settings, const ServerEnvironment& environment,
                    const CurrentAddress& currentAddress);
    void useMocks(Clock& clock);
    void connectX11();
    void connectWayland();
};

} // namespace quillo
