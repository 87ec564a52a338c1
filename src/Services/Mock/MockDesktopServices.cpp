#include "Core/Log.h"
#include "Services/Mock/MockServices.h"

namespace quillo::mock {

namespace {

class TextInjectionService final : public TextInjectionServiceProtocol {
public:
    Task<Delivery> inject(QString text, InjectionMode /*mode*/, bool /*restoreClipboard*/) override {
        appLog(QStringLiteral("[MockTextInjection] Would insert %1 characters").arg(text.size()), LogLevel::info,
               QStringLiteral("Mock"));
        co_return Delivery::typed;
    }
    Task<bool> hasFocusedTextField() override { co_return true; }
};

class PermissionService final : public PermissionServiceProtocol {
public:
    [[nodiscard]] bool isMicrophoneGranted() const override { return true; }
    [[nodiscard]] bool isAccessibilityGranted() const override { return true; }
    Task<bool> requestMicrophone() override { co_return true; }
    Task<bool> requestAccessibility() override { co_return true; }
};

class HotkeyService final : public HotkeyServiceProtocol {
public:
    [[nodiscard]] bool isRunning() const override { return m_isRunning; }
    void start() override { m_isRunning = true; }
    void stop() override { m_isRunning = false; }
    void setRecordingActive(bool /*active*/) override {}

private:
    bool m_isRunning = false;
};

class NetworkMonitor final : public NetworkMonitorServiceProtocol {
public:
    void startMonitoring() override {}
    [[nodiscard]] bool isConnected() const override { return true; }
    AsyncStream<bool> connectivityStream() override {
        auto [stream, sink] = AsyncStream<bool>::make(EventExecutor::main());
        m_sinks.push_back(sink);
        return std::move(stream);
    }

private:
    std::vector<AsyncStream<bool>::Sink> m_sinks;
};

class FileClient final : public TranscriptionFileClientProtocol {
public:
    Task<TranscriptionFileResponse> transcribeFile(QString /*filePath*/, QString /*language*/, QString /*purpose*/,
                                                   std::optional<QString> /*clientRecordingId*/) override {
        co_return answer();
    }
    Task<TranscriptionFileResponse> retranscribeRecord(QString /*audioId*/, QString /*language*/, QString /*purpose*/,
                                                       std::optional<QString> /*clientRecordingId*/) override {
        co_return answer();
    }
    Task<DiarizeResponse> diarizeRecord(QString /*audioId*/, QString /*language*/) override {
        DiarizeResponse response;
        response.plainText = transcript();
        response.processedText = transcript();
        co_return response;
    }
    Task<std::optional<DiarizationPollResponse>> pollDiarization(QString /*taskId*/) override {
        co_return std::nullopt;
    }
    Task<std::optional<DiarizationPollResponse>> recoverDiarizationByRecordingId(QString /*recordingId*/) override {
        co_return std::nullopt;
    }

private:
    static TranscriptionFileResponse answer() {
        TranscriptionFileResponse response;
        response.text = transcript();
        return response;
    }
};

} // namespace

std::unique_ptr<TextInjectionServiceProtocol> createTextInjectionService() {
    return std::make_unique<TextInjectionService>();
}
std::unique_ptr<PermissionServiceProtocol> createPermissionService() { return std::make_unique<PermissionService>(); }
std::unique_ptr<HotkeyServiceProtocol> createHotkeyService() { return std::make_unique<HotkeyService>(); }
std::unique_ptr<NetworkMonitorServiceProtocol> createNetworkMonitor() { return std::make_unique<NetworkMonitor>(); }
std::unique_ptr<TranscriptionFileClientProtocol> createFileClient() { return std::make_unique<FileClient>(); }

} // namespace quillo::mock
