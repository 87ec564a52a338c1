#pragma once

#include "Platform/AudioHardware.h"

#include <QStringList>

#include <functional>
#include <mutex>

namespace quillo::test {

/// Audio hardware whose steps a test can make fail, and whose running unit delivers frames given by the test.
/// Thread-safe.
class FakeAudioHardware final : public AudioHardware {
public:
    /// The status that each step returns, by function name, including "makeInputUnit".
    std::map<QString, AudioStatus> failures;
    /// Whether a failing `makeInputUnit` also returns null.
    bool hasUnit = true;
    double sampleRate = 48000;
    std::vector<AudioHardwareDevice> devices{{u"mic"_qs, u"Microphone"_qs, false}};
    std::optional<QString> standard = u"mic"_qs;
    AudioStatus refused = -1; ///< the status that means: permission denied
    /// Called inside `start`, on the service's thread.
    std::function<void()> onStart;

    /// Delivers `samples` as one callback; false when no unit runs.
    bool feed(const std::vector<float>& samples) {
        const std::lock_guard lock(m_mutex);
        if (m_input)
            m_input(samples.data(), samples.size());
        return static_cast<bool>(m_input);
    }
    void loseDevice(const QString& reason) {
        const std::lock_guard lock(m_mutex);
        if (m_lost)
            m_lost(reason);
    }
    /// The units' calls in their order; "dispose" for the end of one.
    QStringList calls() {
        const std::lock_guard lock(m_mutex);
        return m_calls;
    }

    [[nodiscard]] bool isAvailable() override { return true; }
    std::vector<AudioHardwareDevice> inputDevices() override { return devices; }
    std::optional<QString> defaultInputDevice() override { return standard; }
    std::optional<AudioOutputDevice> defaultOutputDevice() override {
        const std::lock_guard lock(m_mutex);
        return m_output;
    }
    void setDefaultOutputHandler(std::function<void()> handler) override {
        const std::lock_guard lock(m_mutex);
        m_outputHandler = std::move(handler);
    }
    void setDefaultOutput(const std::optional<AudioOutputDevice>& output) {
        const std::lock_guard lock(m_mutex);
        m_output = output;
        if (m_outputHandler)
            m_outputHandler();
    }
    std::unique_ptr<AudioInputUnit> makeInputUnit(AudioStatus& status) override {
        status = record(u"makeInputUnit"_qs);
        return hasUnit ? std::make_unique<Unit>(*this) : nullptr;
    }
    [[nodiscard]] bool isPermissionDenied(AudioStatus status) const override { return status == refused; }
    [[nodiscard]] QString describe(AudioStatus) const override { return u"scripted"_qs; }

private:
    class Unit final : public AudioInputUnit {
    public:
        explicit Unit(FakeAudioHardware& hardware) : m_hardware(hardware) {}
        ~Unit() override {
            silence();
            m_hardware.record(u"dispose"_qs);
        }
        AudioStatus enableInput() override { return m_hardware.record(u"enableInput"_qs); }
        AudioStatus disableOutput() override { return m_hardware.record(u"disableOutput"_qs); }
        AudioStatus setCurrentDevice(const QString& id) override {
            return m_hardware.record(u"setCurrentDevice"_qs, id);
        }
        AudioStatus getDeviceFormat(AudioStreamFormat& format) override {
            format = {m_hardware.sampleRate, 2, 16, 4, 1};
            return m_hardware.record(u"getDeviceFormat"_qs);
        }
        AudioStatus setClientFormat(double) override { return m_hardware.record(u"setClientFormat"_qs); }
        AudioStatus setInputCallback(InputCallback input, LostCallback lost) override {
            m_input = std::move(input);
            m_lost = std::move(lost);
            return m_hardware.record(u"setInputCallback"_qs);
        }
        AudioStatus initialize() override { return m_hardware.record(u"initialize"_qs); }
        AudioStatus start() override {
            const auto status = m_hardware.record(u"start"_qs);
            if (m_hardware.onStart)
                m_hardware.onStart();
            if (status != 0)
                return status;
            const std::lock_guard lock(m_hardware.m_mutex);
            m_hardware.m_input = m_input;
            m_hardware.m_lost = m_lost;
            return 0;
        }
        AudioStatus pause() override {
            silence();
            return m_hardware.record(u"pause"_qs);
        }
        AudioStatus stop() override {
            silence();
            return m_hardware.record(u"stop"_qs);
        }
        AudioStatus uninitialize() override { return m_hardware.record(u"uninitialize"_qs); }

    private:
        void silence() {
            const std::lock_guard lock(m_hardware.m_mutex);
            m_hardware.m_input = nullptr;
            m_hardware.m_lost = nullptr;
        }

        FakeAudioHardware& m_hardware;
        InputCallback m_input;
        LostCallback m_lost;
    };

    AudioStatus record(const QString& call, const QString& argument = {}) {
        const std::lock_guard lock(m_mutex);
        m_calls.append(argument.isEmpty() ? call : call + u' ' + argument);
        const auto failure = failures.find(call);
        return failure == failures.end() ? 0 : failure->second;
    }

    std::mutex m_mutex;
    QStringList m_calls;
    AudioInputUnit::InputCallback m_input;
    AudioInputUnit::LostCallback m_lost;
    std::optional<AudioOutputDevice> m_output;
    std::function<void()> m_outputHandler;
};

} // namespace quillo::test
