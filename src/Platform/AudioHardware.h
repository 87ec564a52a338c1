#pragma once

#include <QString>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace quillo {

/// Status of an audio-hardware operation: 0 is success, anything else the platform's own code.
using AudioStatus = int32_t;

/// An input device. `id` stays the same over reboots and is what a preference stores.
struct AudioHardwareDevice {
    QString id;
    QString name;           ///< "Unknown" when it cannot be read
    bool isMonitor = false; ///< records what a sink plays; never a default, used only when requested by id
    /// Its first sample may take seconds, and opening it again would take them again: a headset over Bluetooth.
    bool startsSlowly = false;
};

/// What a person hears an output through, as far as the sound system can tell.
enum class OutputDeviceType {
    speakers,   ///< a microphone near it records it again
    headphones, ///< by cable or a radio of its own
    bluetooth,  ///< a headset or headphones over Bluetooth
    unknown,
};

/// An output device, and the input device that records what it plays.
struct AudioOutputDevice {
    QString id;
    QString name;      ///< "Unknown" when it cannot be read
    QString monitorId; ///< for `setCurrentDevice`
    OutputDeviceType type = OutputDeviceType::unknown;
    bool operator==(const AudioOutputDevice&) const = default;
};

/// The format that a device delivers.
struct AudioStreamFormat {
    double sampleRate = 0; ///< Hz
    uint32_t channels = 0;
    uint32_t bitsPerChannel = 0;
    uint32_t bytesPerFrame = 0;
    uint32_t framesPerPacket = 1;
};

/// One input unit: opened on one device, started, stopped and disposed once. The steps are called in the order of their
/// declaration, all from one thread; each returns the platform's status. Destroying the unit disposes it.
class AudioInputUnit {
public:
    /// Called on the hardware's own real-time thread with 32-bit float mono samples in -1 to 1 at the client rate. The
    /// samples are valid during the call only. Any number of frames may arrive, holes are delivered as silence.
    using InputCallback = std::function<void(const float* samples, size_t frames)>;
    /// Called once, on the hardware's thread, when the device has vanished or the sound server has gone; no input
    /// callback follows.
    using LostCallback = std::function<void(const QString& reason)>;

    virtual ~AudioInputUnit() = default;

    virtual AudioStatus enableInput() = 0;
    /// A failure does not have to end the set-up.
    virtual AudioStatus disableOutput() = 0;
    virtual AudioStatus setCurrentDevice(const QString& deviceId) = 0;
    virtual AudioStatus getDeviceFormat(AudioStreamFormat& format) = 0;
    /// Requests 32-bit float mono at `sampleRate`, the device's own rate.
    virtual AudioStatus setClientFormat(double sampleRate) = 0;
    virtual AudioStatus setInputCallback(InputCallback input, LostCallback lost) = 0;
    virtual AudioStatus initialize() = 0;
    /// Also after `pause`.
    virtual AudioStatus start() = 0;
    /// After it returns, no callback is running, and none follows until `start`. The device stays open; what it records
    /// meanwhile is discarded.
    virtual AudioStatus pause() = 0;
    /// After it returns, no callback is running and none follows.
    virtual AudioStatus stop() = 0;
    virtual AudioStatus uninitialize() = 0;
};

/// The sound system's devices. Thread-safe; no call waits for more than a short deadline (300 ms) on a hung server.
class AudioHardware {
public:
    virtual ~AudioHardware() = default;

    /// Whether the sound server is reachable now.
    [[nodiscard]] virtual bool isAvailable() = 0;
    virtual std::vector<AudioHardwareDevice> inputDevices() = 0;
    virtual std::optional<QString> defaultInputDevice() = 0;
    /// The output that programs play to unless told otherwise; its type changes when a plug is pulled.
    virtual std::optional<AudioOutputDevice> defaultOutputDevice() = 0;
    /// Calls `handler` on a thread of the platform's own after each change of `defaultOutputDevice`; the handler must
    /// not call back into this object. One handler; an empty one ends the calls, and none is running when this returns.
    virtual void setDefaultOutputHandler(std::function<void()> handler) = 0;
    /// A unit not yet bound to a device; null with `status` set when the platform has none.
    virtual std::unique_ptr<AudioInputUnit> makeInputUnit(AudioStatus& status) = 0;
    /// Whether `status` means that the user or the system refuses the microphone.
    [[nodiscard]] virtual bool isPermissionDenied(AudioStatus) const { return false; }
    /// The platform's name for `status`.
    [[nodiscard]] virtual QString describe(AudioStatus status) const = 0;
};

} // namespace quillo
