#pragma once

#include "Transcription/Recogniser.h"

#include <filesystem>
#include <memory>
#include <string>

namespace quillo::server {

enum class RecogniserKind { pocketSphinx, http, scripted };

struct RecogniserOptions {
    RecogniserKind kind = RecogniserKind::pocketSphinx;
    std::string url;
    std::filesystem::path keyFile;
    std::string model;
    std::filesystem::path script;
};

/// Makes the recogniser that was chosen. Throws std::runtime_error with the cause and the next step.
std::shared_ptr<Recogniser> makeRecogniser(const RecogniserOptions& options);

} // namespace quillo::server
