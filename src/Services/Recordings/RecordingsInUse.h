#pragma once

#include <QSet>
#include <QString>

#include <memory>

namespace quillo {

/// The recordings whose files this process is using, so that neither the queue nor the storage limit touches them. Any
/// thread.
class RecordingsInUse {
public:
    enum class Purpose {
        writing, ///< a recording appends to the file
        queued,  ///< the audio waits to be transcribed again
    };

    /// Marks a recording as in use for its lifetime; several leases of one recording count as one.
    class Lease {
    public:
        Lease() = default;
        Lease(QString recordingId, Purpose purpose);
        ~Lease() { reset(); }
        Lease(Lease&& other) noexcept;
        Lease& operator=(Lease&& other) noexcept;
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        void reset();

    private:
        QString m_recordingId; ///< empty: nothing held
        Purpose m_purpose = Purpose::writing;
    };

    [[nodiscard]] static bool contains(const QString& recordingId, Purpose purpose);
    [[nodiscard]] static bool contains(const QString& recordingId);
};

} // namespace quillo
