#pragma once

#include "Foundation/Digest.h"
#include "Uploads/MultipartParser.h"
#include "Uploads/Spool.h"

#include <memory>
#include <optional>
#include <string>

namespace quillo::server {

/// The form of an upload: its audio goes to a file of the spool as it arrives, its few words are kept. Not
/// thread-safe; every function throws UploadError, after which the form is only good for being destroyed.
class UploadForm final : private MultipartSink {
public:
    static constexpr size_t maxFieldBytes = 1024;

    /// `contentType` must name the boundary.
    UploadForm(std::shared_ptr<Spool> spool, const std::string& contentType, int64_t maxFileBytes);
    UploadForm(const UploadForm&) = delete;
    UploadForm& operator=(const UploadForm&) = delete;

    void push(std::string_view bytes) { parser_.push(bytes); }
    /// The body is over: fails when it was cut off or has no audio.
    void finish();

    /// After `finish`.
    std::unique_ptr<SpoolFile> takeAudio() { return std::move(audio_); }
    [[nodiscard]] const Sha256Value& audioHash() const { return audioHash_; }
    /// Trimmed; empty when the part is absent.
    [[nodiscard]] const std::string& language() const { return language_; }
    [[nodiscard]] const std::string& purpose() const { return purpose_; }
    [[nodiscard]] const std::string& recordingId() const { return recordingId_; }

private:
    void partBegan(const PartHeader& header) override;
    void partData(std::string_view bytes) override;
    void partEnded() override;
    std::string* field(const std::string& name);

    std::shared_ptr<Spool> spool_;
    int64_t maxFileBytes_;
    MultipartParser parser_;
    std::unique_ptr<SpoolFile> audio_;
    Sha256 hash_;
    Sha256Value audioHash_{};
    std::string language_;
    std::string purpose_;
    std::string recordingId_;
    std::string seen_;             ///< names of the parts so far, each with a line break
    std::string* field_ = nullptr; ///< that the part goes to
    bool inAudio_ = false;
};

} // namespace quillo::server
