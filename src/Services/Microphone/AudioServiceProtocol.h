#pragma once

#include "Concurrency/AsyncStream.h"
#include "Concurrency/Task.h"
#include "Core/AudioChunk.h"

#include <QString>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <vector>

namespace quillo {

/// An input device as offered in the settings.
struct AudioDevice {
    QString id; ///< key of the preferred-device setting
    QString name;
    bool isDefault = false;
    bool operator==(const AudioDevice&) const = default;
};

/// Why a capture could not be started or ended early. `what()` is for the log; a person reads the text of the code.
class AudioServiceError : public std::runtime_error {
public:
    enum class Code {
        alreadyCapturing,
        invalidFormat,
        engineStartFailed,
        permissionDenied,
        deviceSetupFailed,
        noDevice,   ///< there is no input device at all
        deviceLost, ///< it went while it was captured; the detail is its name
    };

    /// Uses the description of the code.
    explicit AudioServiceError(Code code);
    /// For a failed set-up step, with the step's own message.
    AudioServiceError(Code code, const QString& message, QString detail = {});
    [[nodiscard]] Code code() const { return m_code; }
    [[nodiscard]] const QString& detail() const { return m_detail; }

private:
    Code m_code;
    QString m_detail;
};

/// Turns the microphone into a stream of 100 ms chunks. Operations are called on the main thread and serialised on the
/// service's own executor.
class AudioServiceProtocol {
public:
    virtual ~AudioServiceProtocol() = default;

    /// Opens the device and starts; throws AudioServiceError. The stream ends on `stopCapture` or when the device is
    /// lost; dropping the stream stops the capture.
    virtual Task<AsyncStream<AudioChunk>> startCapture() = 0;
    /// Flushes pending samples as a last chunk, ends the stream and closes the device. Idempotent. During a start it
    /// returns at once, and the capture ends as soon as it has begun.
    virtual void stopCapture() = 0;
    virtual Task<std::vector<AudioDevice>> getAvailableDevices() = 0;
    virtual Task<std::optional<AudioDevice>> getDefaultInputDevice() = 0;
    /// The device for the next `startCapture`; nothing means the system default.
    virtual void setPreferredInputDeviceID(std::optional<QString> id) = 0;
    /// Name of the device of the running or latest capture, for messages; empty before the first.
    [[nodiscard]] virtual QString currentDeviceName() const = 0;
    /// Whether that device may take seconds to deliver, so that opening it again only delays it.
    [[nodiscard]] virtual bool startsSlowly() const { return false; }
    /// When the hardware delivered the first samples of the running or latest capture.
    [[nodiscard]] virtual std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const = 0;
};

} // namespace quillo
