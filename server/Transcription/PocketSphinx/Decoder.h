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

/// One PocketSphinx decoder: about 95 MB, nothing of it shared with another. One thread at a time.
class Decoder {
public:
    /// Loads the model: about 0.3 s. Loads in different threads exclude each other. Throws RecogniserUnavailable.
    explicit Decoder(const ModelFiles& files);
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder();

    /// Forgets the speaker and the room, so that the next session gives what a fresh decoder would.
    void reset();
    /// Begins an utterance. `opening`, if given, is its first second or so: with nothing heard of the speaker yet, the
    /// channel is estimated from it. Without that estimate the first utterance is a matter of luck.
    void begin(std::span<const int16_t> opening);
    void process(std::span<const int16_t> samples);
    /// The words so far, without times.
    [[nodiscard]] RawWords partial();
    /// Ends the utterance. An empty one leaves no trace in the estimate of the channel.
    RawWords end();

private:
    struct Library;
    std::unique_ptr<Library> m_library;
};

} // namespace quillo::server
