#pragma once

#include "Transcription/Recogniser.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

namespace quillo::server {

struct PocketSphinxSettings {
    /// The folder with en-us/, en-us.lm.bin and cmudict-en-us.dict.
    std::filesystem::path modelFolder = "/usr/share/pocketsphinx/model/en-us";
    /// Sessions served at once. Each needs about 105 MB and, in real time, a sixth of a core.
    size_t maxDecoders = std::max<size_t>(1, std::thread::hardware_concurrency()) * 4;
    /// Decoders that are unused for this long are unloaded.
    std::chrono::milliseconds idleUnload = std::chrono::minutes(10);
    /// Silence that ends a sentence, unless the speaker dictates the marks.
    std::chrono::milliseconds sentencePause = std::chrono::milliseconds(1500);
    /// False for studio recordings: without noise, the noise filter costs a little accuracy.
    bool removeNoise = true;
    /// False for plain words: lower case, numbers spelled out, only dictated marks.
    bool formatText = true;
};

/// The embedded recogniser: English, streaming, offline. Throws RecogniserUnavailable when the model cannot be read;
/// the model itself is loaded by the first session, which buffers its audio until then.
///
/// `open` throws RecogniserUnavailable for other languages than English, and when `maxDecoders` sessions are running. A
/// session's slot is free again when `onFinished` is called. Destroying the recogniser abandons its sessions; do not
/// destroy it from a listener.
std::unique_ptr<Recogniser> makePocketSphinxRecogniser(const PocketSphinxSettings& settings);

} // namespace quillo::server
