#include "App/System/ServiceContainer.h"

#include "Core/Log.h"
#include "Core/Preferences.h"
#include "Platform/Linux/AtSpi/AtSpiAccessibility.h"
#include "Platform/Linux/LoginItem/AutostartLoginItem.h"
#include "Platform/Linux/PulseAudio/PulseAudioHardware.h"
#include "Platform/Linux/Reachability/NetlinkPathMonitor.h"
#include "Platform/Linux/SecretService/SecretStores.h"
#include "Platform/Linux/Session/LogindSessionWatch.h"
#include "Platform/Linux/Sounds/PulseAudioSounds.h"
#include "Platform/Linux/Wayland/DataControlPasteboard.h"
#include "Platform/Linux/Wayland/DesktopProtocol.h"
#include "Platform/Linux/X11/InjectionGuard.h"
#include "Platform/Linux/X11/KeyboardGrabProbe.h"
#include "Platform/Linux/X11/X11Applications.h"
#include "Platform/Linux/X11/X11KeyEventSource.h"
#include "Platform/Linux/X11/X11KeyInjector.h"
#include "Platform/Linux/X11/X11Pasteboard.h"
#include "Platform/Unavailable.h"
#include "Services/Auth/AuthService.h"
#include "Services/Desktop/PermissionService.h"
#include "Services/Hotkeys/HotkeyService.h"
#include "Services/Injection/TextInjectionService.h"
#include "Services/Metrics/MetricsService.h"
#include "Services/Microphone/AUHALAudioService.h"
#include "Services/Mock/MockServices.h"
#include "Services/Network/NetworkMonitorService.h"
#include "Services/Socket/WebSocketService.h"
#include "Services/Upload/TranscriptionFileClient.h"

#include <QDesktopServices>
#include <QStandardPaths>

namespace quillo {

namespace {

const QString deviceIdPreference = QStringLiteral("com.quillospeech.deviceId");
const QString homeSecretPreference = QStringLiteral("com.quillospeech.homeSecret");

/// The adapter, or the null object where the desktop has none.
template <class Interface>
std::unique_ptr<Interface> orElse(std::unique_ptr<Interface> adapter, std::unique_ptr<Interface> (*standIn)()) {
    return adapter ? std::move(adapter) : standIn();
}

/// No browser trusts the authority created by a server on this machine, and a loopback connection cannot be
/// intercepted.
QUrl browserPages(const ServerEnvironment& environment) {
    auto pages = environment.authBaseURL();
    if (environment.isLoopback())
        pages.setScheme(QStringLiteral("http"));
    return pages;
}

QString deviceIdKey(const ServerEnvironment& environment) {
    return environment.isCustomHost() ? QString(deviceIdPreference + u'@' + environment.identity())
                                      : deviceIdPreference;
}

DeviceIdentity thisDevice(const ServerEnvironment& environment) {
    auto& preferences = Preferences::shared();
    if (preferences.value(homeSecretPreference).toString().isEmpty())
        preferences.setValue(homeSecretPreference, QString::fromLatin1(makeHomeSecret()));
    return DeviceIdentity(DeviceIdentity::Source{
        .homeSecret = preferences.value(homeSecretPreference).toString().toLatin1(),
        .server = environment.identity(),
    });
}

AtSpiSwitchMemory switchMemory() {
    const auto key = QStringLiteral("accessibilitySwitchedOn");
    return {
        [key] { return Preferences::shared().value(key).toBool(); },
        [key](bool isOurs) { isOurs ? Preferences::shared().setValue(key, true) : Preferences::shared().remove(key); }};
}

/// A site that has a server of its own need not have a way to the internet.
NetworkReach reachOf(const ServerEnvironment& environment) {
    return environment.isOnLocalNetwork() ? NetworkReach::localNetwork : NetworkReach::internet;
}

std::shared_ptr<KeychainTokenStorage> makeTokenStorage(const ServerEnvironment& environment) {
    const auto folder =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/quillo");
    return std::make_shared<KeychainTokenStorage>(
        createSecretStore(folder + QStringLiteral("/secrets.json")),
        KeychainTokenStorage::DeviceIdMirror{
            [key = deviceIdKey(environment)] {
                const auto stored = Preferences::shared().value(key).toString();
                return stored.isEmpty() ? std::nullopt : std::optional(stored);
            },
            [key = deviceIdKey(environment)](const QString& id) { Preferences::shared().setValue(key, id); },
        },
        environment.identity());
}

} // namespace

bool ServiceContainer::usesMockServices() { return qEnvironmentVariableIsSet("USE_MOCK_SERVICES"); }

ServiceContainer::ServiceContainer(Clock& clock, UserSettings& settings, const ServerEnvironment& environment,
                                   const CurrentAddress& currentAddress) {
    if (usesMockServices())
        useMocks(clock);
    else
        useDesktop(clock, settings, environment, currentAddress);
}

void ServiceContainer::useDesktop(Clock& clock, UserSettings& settings, const ServerEnvironment& environment,
                                  const CurrentAddress& currentAddress) {
    audioHardware = createPulseAudioHardware();
    if (desktopProtocol(QProcessEnvironment::systemEnvironment()) == DesktopProtocol::wayland)
        connectWayland();
    else
        connectX11();
    sounds = createSounds();

    audioService = std::make_unique<AUHALAudioService>(*audioHardware);
    keychain = makeTokenStorage(environment);
    tokenStorage = keychain;
    trust = TrustedNetwork::fromEnvironment(environment.isLoopback() && !environment.isCustomHost());
    prepareRequest = [trusted = trust, currentAddress](QNetworkRequest& request) {
        request.setUrl(currentAddress(request.url()));
        trusted->prepare(request);
    };
    webSocketService = std::make_unique<WebSocketService>(
        WebSocketService::Config{
            .serverURL = [url = environment.wsTranscribeURL(), currentAddress] { return currentAddress(url); },
            .tokenStorage = tokenStorage,
            .staticToken = {},
            .trust = trust,
            .clientVersion = QStringLiteral(QUILLO_VERSION),
            .timeouts = {},
        },
        clock);
    textInjectionService = std::make_unique<TextInjectionService>(
        *pasteboard, *keyInjector, *applications, *accessibility, clock,
        [&settings] { return settings.value(QStringLiteral("smartSpacing")).toBool(); });
    permissionService = std::make_unique<PermissionService>(
        [this] { return audioHardware->isAvailable(); },
        // If keys cannot be sent, Quillo still works in a reduced mode: the text is put on the clipboard.
        [this] { return keyInjector->isAvailable() || pasteboard->isAvailable(); });
    auto hotkeys = std::make_unique<HotkeyService>(*keyEvents, clock, settings);
    hotkeys->setDebugMode(qEnvironmentVariableIsSet("QUILLO_DEBUG_HOTKEYS"));
    hotkeyService = std::move(hotkeys);
    authService = std::make_unique<AuthService>(
        AuthService::Config{
            .authBaseURL = environment.authBaseURL(),
            .apiBaseURL = environment.apiBaseURL(),
            .tokenStorage = tokenStorage,
            .prepareRequest = prepareRequest,
            .loadStorage = [storage = keychain] { return storage->load(); },
            .device = thisDevice(environment),
            .clientVersion = QStringLiteral(QUILLO_VERSION),
            .openBrowser =
                [currentAddress](const QUrl& page) { return QDesktopServices::openUrl(currentAddress(page)); },
            .browserAuthBaseURL = browserPages(environment),
        },
        clock);
    fileClient = std::make_unique<TranscriptionFileClient>(
        TranscriptionFileClient::Config{
            .apiBaseURL = environment.apiBaseURL(),
            .tokenStorage = tokenStorage,
            .prepareRequest = prepareRequest,
        },
        *authService, clock);
    networkMonitor = std::make_unique<NetworkMonitorService>(createNetlinkPathMonitor(reachOf(environment)),
                                                             environment.isLoopback());
    metricsService = std::make_unique<MetricsService>();
    sessionWatch = createLogindSessionWatch();
    loginItem = createAutostartLoginItem(AutostartPlace::ofThisProcess());
}

ServiceContainer::~ServiceContainer() = default;

void ServiceContainer::useMocks(Clock& clock) {
    appLog(QStringLiteral("🧪 Running in TEST MODE with mock services"), LogLevel::info,
           QStringLiteral("ServiceContainer"));
    keyEvents = makeUnavailableKeyEventSource();
    keyInjector = makeUnavailableKeyInjector();
    pasteboard = makeUnavailablePasteboard();
    applications = makeUnavailableApplications();
    accessibility = makeUnavailableAccessibility();
    sounds = createSounds();

    audioService = mock::createAudioService(clock);
    webSocketService = mock::createWebSocketService(clock);
    textInjectionService = mock::createTextInjectionService();
    permissionService = mock::createPermissionService();
    hotkeyService = mock::createHotkeyService();
    tokenStorage = std::make_shared<InMemoryTokenStorage>();
    tokenStorage->setAccessToken(QStringLiteral("mock"));
    tokenStorage->setAccessTokenExpiresAt(clock.wallTime().addDays(1));
    authService = mock::createAuthService(clock);
    fileClient = mock::createFileClient();
    networkMonitor = mock::createNetworkMonitor();
    metricsService = std::make_unique<MetricsService>();
}

void ServiceContainer::connectX11() {
    const auto guard = std::make_shared<InjectionGuard>();
    keyEvents = orElse(createX11KeyEventSource(guard), makeUnavailableKeyEventSource);
    keyInjector = orElse(createX11KeyInjector(guard), makeUnavailableKeyInjector);
    pasteboard = orElse(createX11Pasteboard(), makeUnavailablePasteboard);
    applications = orElse(createX11Applications(), makeUnavailableApplications);
    accessibility = createAtSpiAccessibility([guard] { return x11KeyboardIsGrabbed(*guard); }, switchMemory());
}

void ServiceContainer::connectWayland() {
    // Keys and windows of the session are not accessible: an X server beside the compositor shows only its own clients.
    // Add adapters over the desktop's portals here.
    keyEvents = makeUnavailableKeyEventSource();
    keyInjector = makeUnavailableKeyInjector();
    applications = makeUnavailableApplications();
    pasteboard = createDataControlPasteboard();
    // A compositor without data control accepts the clipboard of its X clients without requiring focus (GNOME).
    if (!pasteboard && !qEnvironmentVariableIsEmpty("DISPLAY"))
        pasteboard = createX11Pasteboard();
    pasteboard = orElse(std::move(pasteboard), makeUnavailablePasteboard);
    accessibility = createAtSpiAccessibility([] { return false; }, switchMemory());
}

} // namespace quillo
