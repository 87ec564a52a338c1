// Feeds the reader of recordings' metadata with what libFuzzer thinks up. What it takes must survive being written.

#include "Services/Recordings/PendingAudioFiles.h"

#include <cstdlib>
#include <stdexcept>

using namespace quillo;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray json(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    try {
        const auto metadata = PendingAudioMetadata::decode(json);
        if (PendingAudioMetadata::decode(metadata.encode()) != metadata)
            std::abort();
        if (pendingAudioFiles::isRecordingId(metadata.id) &&
            pendingAudioFiles::audioPath(metadata.id) !=
                pendingAudioFiles::directory() + u'/' + metadata.id + u".pcm"_qs)
            std::abort();
    } catch (const std::runtime_error&) {
        return 0;
    }
    return 0;
}
