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
    : m_spool(std::move(spool)), m_maxFileBytes(maxFileBytes), m_parser(requireBoundary(contentType), *this) {}

std::string* UploadForm::field(const std::string& name) {
    if (name == "language")
        return &m_language;
    if (name == "purpose")
        return &m_purpose;
    if (name == "client_recording_id")
        return &m_recordingId;
    return nullptr;
}

void UploadForm::partBegan(const PartHeader& header) {
    m_field = field(header.name);
    m_inAudio = header.name == audioPart;
    if (!m_field && !m_inAudio)
        return; // a newer client may send more fields; read and ignore them
    const std::string line = header.name + "\n";
    if (m_seen.find(line) != std::string::npos)
        throw UploadError(400, "DUPLICATE_PART", "The form has two parts named \"" + header.name + "\"; send one.");
    m_seen += line;
    if (m_inAudio)
        m_audio = m_spool->create();
}

void UploadForm::partData(std::string_view bytes) {
    if (m_inAudio) {
        if (m_audio->size() + static_cast<int64_t>(bytes.size()) > m_maxFileBytes)
            throw UploadError(413, "UPLOAD_TOO_LARGE",
                              "The audio is larger than the " + std::to_string(m_maxFileBytes) +
                                  " bytes that this server takes; send it in pieces.");
        m_hash.update(bytes);
        m_audio->write(bytes);
    } else if (m_field) {
        if (m_field->size() + bytes.size() > maxFieldBytes)
            throw UploadError(400, "PART_TOO_LARGE",
                              "A text part of the form is longer than " + std::to_string(maxFieldBytes) + " bytes.");
        m_field->append(bytes);
    }
}

void UploadForm::partEnded() {
    if (m_field) {
        const auto begin = m_field->find_first_not_of(" \t\r\n");
        const auto end = m_field->find_last_not_of(" \t\r\n");
        *m_field = begin == std::string::npos ? "" : m_field->substr(begin, end - begin + 1);
        const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
        if (std::ranges::any_of(*m_field, control))
            throw UploadError(400, "INVALID_PART", "A text part of the form holds control characters.");
    }
    m_field = nullptr;
    m_inAudio = false;
}

void UploadForm::finish() {
    m_parser.finish();
    if (!m_audio)
        throw UploadError(400, "MISSING_PART", "The form has no part named \"file\" with the audio.");
    if (m_audio->size() == 0)
        throw UploadError(422, "NO_AUDIO", "The part \"file\" is empty; send a WAV file with 16-bit PCM audio.");
    m_audio->close();
    m_audioHash = m_hash.finish();
}

} // namespace quillo::server
