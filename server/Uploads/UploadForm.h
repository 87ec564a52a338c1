#pragma once

#include "Foundation/Digest.h"
#include "Uploads/MultipartParser.h"
#include "Uploads/Spool.h"

#include <memory>
#include <optional>
#include <string>

namespace quillo::server {

/// The form of an upload: its audio is written to a file of the spool as it arrives, its short fields are kept in
/// memory. Not thread-safe. Every function throws UploadError, after which the form can only be destroyed.
class UploadForm final : private MultipartSink {
public:
    static constexpr size_t maxFieldBytes = 1024;

    /// `contentType` must contain the boundary.
    UploadForm(std::shared_ptr<Spool> spool, const std::string& contentType, int64_t maxFileBytes);
    UploadForm(const UploadForm&) = delete;
    UploadForm& operator=(const UploadForm&) = delete;

    void push(std::string_view bytes) { m_parser.push(bytes); }
    /// Call at the end of the body; fails when it was truncated or has no audio.
    void finish();

    /// After `finish`.
    std::unique_ptr<SpoolFile> takeAudio() { return std::move(m_audio); }
    [[nodiscard]] const Sha256Value& audioHash() const { return m_audioHash; }
    /// Trimmed; empty when the part is absent.
    [[nodiscard]] const std::string& language() const { return m_language; }
    [[nodiscard]] const std::string& purpose() const { return m_purpose; }
    [[nodiscard]] const std::string& recordingId() const { return m_recordingId; }

private:
    void partBegan(const PartHeader& header) override;
    void partData(std::string_view bytes) override;
    void partEnded() override;
    std::string* field(const std::string& name);

    std::shared_ptr<Spool> m_spool;
    int64_t m_maxFileBytes;
    MultipartParser m_parser;
    std::unique_ptr<SpoolFile> m_audio;
    Sha256 m_hash;
    Sha256Value m_audioHash{};
    std::string m_language;
    std::string m_purpose;
    std::string m_recordingId;
    std::string m_seen;             ///< names of the parts so far, each with a line break
    std::string* m_field = nullptr; ///< that receives the part
    bool m_inAudio = false;
};

} // namespace quillo::server
