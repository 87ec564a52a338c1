#include "Platform/Linux/PulseAudio/PulseAudioHardware.h"

#include "Platform/Linux/PulseAudio/PulseAudioInputUnit.h"

namespace quillo {

namespace {

class PulseAudioHardware final : public AudioHardware {
public:
    [[nodiscard]] bool isAvailable() override { return m_connection->isReady(); }

    std::vector<AudioHardwareDevice> inputDevices() override {
        std::vector<AudioHardwareDevice> devices;
        for (auto& source : m_connection->sources())
            devices.push_back(std::move(source.device));
        return devices;
    }

    std::optional<QString> defaultInputDevice() override { return m_connection->defaultSource(); }

    std::optional<AudioOutputDevice> defaultOutputDevice() override { return m_connection->defaultOutput(); }

    void setDefaultOutputHandler(std::function<void()> handler) override {
        m_connection->setDefaultOutputHandler(std::move(handler));
    }

    std::unique_ptr<AudioInputUnit> makeInputUnit(AudioStatus& status) override {
        status = 0;
        return makePulseAudioInputUnit(m_connection);
    }

    [[nodiscard]] bool isPermissionDenied(AudioStatus status) const override { return status == PA_ERR_ACCESS; }

    [[nodiscard]] QString describe(AudioStatus status) const override { return QString::fromUtf8(pa_strerror(status)); }

private:
    std::shared_ptr<PulseAudioConnection> m_connection = std::make_shared<PulseAudioConnection>();
};

} // namespace

std::unique_ptr<AudioHardware> createPulseAudioHardware() { return std::make_unique<PulseAudioHardware>(); }

} // namespace quillo
