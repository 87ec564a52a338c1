#pragma once

#include "Concurrency/Executor.h"
#include "Concurrency/Task.h"

#include <QObject>

#include <functional>
#include <memory>

namespace quillo {

class UserSettings;

namespace audioStorage {
struct Rules {
    qint64 limit = 0;      ///< bytes
    bool keepAudio = true; ///< of what is finished
};
} // namespace audioStorage

/// Keeps the audio on disk below the user's limit: deletes the oldest retained recordings first, and never those that
/// wait for their text. Main thread; file operations run on a separate queue.
class AudioStorageManager final : public QObject {
    Q_OBJECT
public:
    static AudioStorageManager& shared();

    explicit AudioStorageManager(UserSettings& settings);
    ~AudioStorageManager() override;

    /// In megabytes of 1,000,000 bytes, as desktops show file sizes. The setting "audioStorageLimitMB".
    [[nodiscard]] int storageLimitMB() const;
    void setStorageLimitMB(int megabytes);
    /// Bytes in the folder when it was last measured.
    [[nodiscard]] qint64 currentUsageBytes() const { return m_usage; }
    /// Usage divided by the limit.
    [[nodiscard]] double usageRatio() const;

    /// Measures, deletes the oldest retained recordings until the limit is met, and publishes the usage.
    void enforceStorageLimit();
    /// The same without blocking the main thread; returns when it is done. Called after a recording was saved.
    Task<> enforceStorageLimitAsync();
    /// Deletes every retained recording's audio.
    void clearAllAudio();

Q_SIGNALS:
    void usageChanged(qint64 bytes);

private:
    [[nodiscard]] audioStorage::Rules rules() const;
    void publish(qint64 bytes);

    UserSettings& m_settings;
    std::unique_ptr<SerialExecutor> m_queue;      ///< made when it is first needed
    std::shared_ptr<AudioStorageManager*> m_self; ///< null once this is destroyed
    qint64 m_usage = 0;
};

} // namespace quillo
