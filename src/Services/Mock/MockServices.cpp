#include "Services/Mock/MockServices.h"

#include "Core/Log.h"
#include "Services/Mock/MockHotkeyService.h"
#include "Services/Mock/MockNetworkMonitor.h"
#include "Services/Mock/MockPermissionService.h"
#include "Services/Mock/MockTextInjectionService.h"
#include "Services/Mock/MockTranscriptionFileClient.h"

namespace quillo::mock {

namespace {

class LoggedInjection final : public MockTextInjectionService {
public:
    LoggedInjection() { delivery = Delivery::typed; }

    Task<Delivery> inject(QString text, InjectionMode mode, bool restoreClipboard) override {
        appLog(QStringLiteral("[MockTextInjection] Would insert %1 characters").arg(text.size()), LogLevel::info,
               QStringLiteral("Mock"));
        return MockTextInjectionService::inject(std::move(text), mode, restoreClipboard);
    }
};

} // namespace

std::unique_ptr<TextInjectionServiceProtocol> createTextInjectionService() {
    return std::make_unique<LoggedInjection>();
}
std::unique_ptr<PermissionServiceProtocol> createPermissionService() {
    return std::make_unique<MockPermissionService>();
}
std::unique_ptr<HotkeyServiceProtocol> createHotkeyService() { return std::make_unique<MockHotkeyService>(); }
std::unique_ptr<NetworkMonitorServiceProtocol> createNetworkMonitor() { return std::make_unique<MockNetworkMonitor>(); }

std::unique_ptr<TranscriptionFileClientProtocol> createFileClient() {
    auto client = std::make_unique<MockTranscriptionFileClient>();
    client->onTranscribe = [](const auto&) { return TranscriptionFileResponse{.text = transcript()}; };
    client->onDiarize = [](const auto&) {
        return DiarizeResponse{.plainText = transcript(), .processedText = transcript()};
    };
    return client;
}

QString transcript() {
    return QStringLiteral("The quick brown fox jumps over the lazy dog while you dictate a sentence that is long "
                          "enough to see how the interface takes it.");
}

} // namespace quillo::mock
