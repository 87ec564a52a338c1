#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace quillo::server {

/// A transcription service with OpenAI's interface: OpenAI itself, whisper.cpp, vLLM, LocalAI, speaches and others.
struct HttpRecogniserSettings {
    std::string url;                               ///< "https://host:port"
    std::string path = "/v1/audio/transcriptions"; ///< "/inference" for an unconfigured whisper.cpp server
    std::string key;                               ///< sent as a bearer token; empty for none
    std::string model;                             ///< empty to leave the choice to the service
    std::vector<std::string> languages;            ///< that the service understands; empty when not known
    std::string prompt;                            ///< words and names the service should expect; may be empty
    std::filesystem::path authorityFile;           ///< PEM certificates to trust instead of the system's
    size_t maxSessions = 64;
    std::chrono::milliseconds connectTimeout = std::chrono::seconds(5);
    std::chrono::milliseconds requestTimeout = std::chrono::seconds(60);
    /// How often the utterance being spoken is sent again for a partial text; zero for never.
    std::chrono::milliseconds partialInterval = std::chrono::seconds(1);
    /// Requests made for one utterance before the recognition fails.
    int maxAttempts = 3;
    /// Before the second attempt; doubles with each.
    std::chrono::milliseconds retryDelay = std::chrono::milliseconds(300);
    /// A service that asks to wait longer than this counts as unavailable.
    std::chrono::milliseconds longestWait = std::chrono::seconds(10);
    size_t maxResponseBytes = 4 << 20;
};

} // namespace quillo::server
