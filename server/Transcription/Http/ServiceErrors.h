#pragma once

#include "Transcription/Http/HttpTransfer.h"

#include <string>

namespace quillo::server {

/// A failed request in words.
struct ServiceError {
    bool unavailable = true; ///< false when this one request was at fault
    bool passing = false;    ///< worth another attempt
    std::string message;     ///< cause and next step; never holds the key
};

/// Explains a result that holds no transcription.
ServiceError explain(const HttpResult& result, const HttpRecogniserSettings& settings, const std::string& url);

} // namespace quillo::server
