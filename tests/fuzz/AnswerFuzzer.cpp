// Feeds the readers of the file transcription's answers with what libFuzzer thinks up.

#include "Services/Upload/TranscriptionFileResponse.h"

#include <cstdlib>
#include <stdexcept>

using namespace quillo;

namespace {

template <class Decode>
void feed(Decode decode, const QByteArray& body) {
    try {
        decode(body);
    } catch (const std::runtime_error&) {
        return;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    feed(transcriptionFileCoding::decodeTranscription, body);
    feed(transcriptionFileCoding::decodeDiarization, body);
    feed(transcriptionFileCoding::decodePoll, body);
    const auto message = transcriptionFileCoding::errorMessage(body);
    if (message.size() > 500 || message.contains(u'\n'))
        std::abort();
    return 0;
}
