#pragma once

#include "Foundation/Digest.h"
#include "Uploads/Spool.h"

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace quillo::server {

/// Writes a meeting's audio to the spool while it is streamed, as a WAV file of 16 kHz mono. The file is removed with
/// this object unless `finish` hands it over. Thread-safe.
class MeetingAudio : public std::enable_shared_from_this<MeetingAudio> {
public:
    /// Creates the file. Throws UploadError.
    using Create = std::function<std::unique_ptr<SpoolFile>()>;
    /// Runs a function on a thread that may block.
    using Work = std::function<void(std::function<void()>)>;

    MeetingAudio(Create create, Work work);

    /// Takes a copy. Never blocks on the disk and never fails: `finish` reports a failure.
    void add(std::span<const int16_t> samples);
    /// Seconds of audio that are not written yet.
    [[nodiscard]] double backlogSeconds() const;

    struct Finished {
        std::unique_ptr<SpoolFile> file;
        Sha256Value hash{}; ///< of the whole file
    };
    /// Writes the rest. Blocks; call it once, after the last `add`. Throws UploadError when not all of the audio could
    /// be written.
    Finished finish();

private:
    void writePending();
    void write(std::string_view bytes);

    const Create m_create;
    const Work m_work;

    mutable std::mutex m_mutex; ///< guards the next three
    std::vector<int16_t> m_pending;
    bool m_isScheduled = false;
    bool m_hasFailed = false;

    std::mutex m_writing; ///< guards what follows; taken before `m_mutex`
    std::unique_ptr<SpoolFile> m_file;
    Sha256 m_hash;
    std::exception_ptr m_failure;
};

} // namespace quillo::server
