#pragma once

#include "Transcription/Recogniser.h"

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace quillo::server {

/// The files of an English PocketSphinx model, as Debian's package pocketsphinx-en-us lays them out.
struct ModelFiles {
    std::filesystem::path acoustic;
    std::filesystem::path languageModel;
    std::filesystem::path dictionary;
    bool removeNoise = true;

    /// Throws RecogniserUnavailable naming the missing file and the package that holds it. PocketSphinx itself ends the
    /// process on some incomplete models.
    static ModelFiles in(const std::filesystem::path& folder, bool removeNoise);
};

/// Words and spoken marks ("comma", "new line") as PocketSphinx returns them; times in seconds from the start of the
/// utterance. Marks are written as `spokenMarks` lists them.
using RawWords = std::vector<Word>;

/// One PocketSphinx decoder: about 95 MB, which are not shared. One thread at a time.
class Decoder {
public:
    /// Loads the model: about 0.3 s. Loads in different threads exclude each other. Throws RecogniserUnavailable.
    explicit Decoder(const ModelFiles& files);
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder();

    /// Forgets the speaker and the room, so that the next session gets the same result as with a new decoder.
    void reset();
    /// Begins an utterance. `opening`, if given, is its first second or so: for a new speaker the channel is estimated
    /// from it. Without the estimate, the first utterance is often recognised badly.
    void begin(std::span<const int16_t> opening);
    void process(std::span<const int16_t> samples);
    /// The words so far, without times.
    [[nodiscard]] RawWords partial();
    /// Ends the utterance. An empty one does not affect the channel estimate.
    RawWords end();

private:
    struct Library;
    std::unique_ptr<Library> m_library;
};

} // namespace quillo::server
