#pragma once

#include "Transcription/Recogniser.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillo::server {

enum class RecogniserKind { pocketSphinx, http, scripted };

struct RecogniserOptions {
    RecogniserKind kind = RecogniserKind::pocketSphinx;
    std::string url;
    std::string path;   ///< empty for the usual one
    std::string prompt; ///< words and names the service should expect
    std::filesystem::path authorityFile;
    std::optional<std::chrono::seconds> connectTimeout;
    std::optional<std::chrono::seconds> requestTimeout;
    std::optional<size_t> sessions; ///< at once; the embedded recogniser has a decoder for each
    std::filesystem::path keyFile;
    std::vector<std::string> languages; ///< that the service understands; empty when not known
    std::string model;
    std::filesystem::path script;
};

/// Creates the chosen recogniser. Throws std::runtime_error with the cause and the next step.
std::shared_ptr<Recogniser> makeRecogniser(const RecogniserOptions& options);

} // namespace quillo::server
