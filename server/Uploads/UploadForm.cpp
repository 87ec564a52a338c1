#include "Uploads/UploadForm.h"

#include "Uploads/UploadError.h"

#include <algorithm>

namespace quillo::server {
namespace {

constexpr const char* audioPart = "file";

std::string requireBoundary(const std::string& contentType) {
    const auto boundary = MultipartParser::boundaryOf(contentType);
    if (!boundary)
        throw UploadError(400, "MALFORMED_MULTIPART",
                          "The Content-Type names no valid boundary; send \"multipart/form-data; boundary=...\".");
    return *boundary;
}

} // namespace

UploadForm::UploadForm(std::shared_ptr<Spool> spool, const std::string& contentType, int64_t maxFileBytes)
    : spool_(std::move(spool)), maxFileBytes_(maxFileBytes), parser_(requireBoundary(contentType), *this) {}

std::string* UploadForm::field(const std::string& name) {
    if (name == "language")
        return &language_;
    if (name == "purpose")
        return &purpose_;
    if (name == "client_recording_id")
        return &recordingId_;
    return nullptr;
}

void UploadForm::partBegan(const PartHeader& header) {
    field_ = field(header.name);
    inAudio_ = header.name == audioPart;
    if (!field_ && !inAudio_)
        return; // a newer client may send more; it is read and dropped
    const std::string line = header.name + "\n";
    if (seen_.find(line) != std::string::npos)
        throw UploadError(400, "DUPLICATE_PART", "The form has two parts named \"" + header.name + "\"; send one.");
    seen_ += line;
    if (inAudio_)
        audio_ = spool_->create();
}

void UploadForm::partData(std::string_view bytes) {
    if (inAudio_) {
        if (audio_->size() + static_cast<int64_t>(bytes.size()) > maxFileBytes_)
            throw UploadError(413, "UPLOAD_TOO_LARGE",
                              "The audio is larger than the " + std::to_string(maxFileBytes_) +
                                  " bytes that this server takes; send it in pieces.");
        hash_.update(bytes);
        audio_->write(bytes);
    } else if (field_) {
        if (field_->size() + bytes.size() > maxFieldBytes)
            throw UploadError(400, "PART_TOO_LARGE",
                              "A text part of the form is longer than " + std::to_string(maxFieldBytes) + " bytes.");
        field_->append(bytes);
    }
}

void UploadForm::partEnded() {
    if (field_) {
        const auto begin = field_->find_first_not_of(" \t\r\n");
        const auto end = field_->find_last_not_of(" \t\r\n");
        *field_ = begin == std::string::npos ? "" : field_->substr(begin, end - begin + 1);
        const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
        if (std::ranges::any_of(*field_, control))
            throw UploadError(400, "INVALID_PART", "A text part of the form holds control characters.");
    }
    field_ = nullptr;
    inAudio_ = false;
}

void UploadForm::finish() {
    parser_.finish();
    if (!audio_)
        throw UploadError(400, "MISSING_PART", "The form has no part named \"file\" with the audio.");
    if (audio_->size() == 0)
        throw UploadError(422, "NO_AUDIO", "The part \"file\" is empty; send a WAV file with 16-bit PCM audio.");
    audio_->close();
    audioHash_ = hash_.finish();
}

} // namespace quillo::server
