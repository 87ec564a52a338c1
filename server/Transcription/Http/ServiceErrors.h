#pragma once

#include "Transcription/Http/HttpTransfer.h"

#include <string>

namespace quillo::server {

/// The description of a failed request.
struct ServiceError {
    bool unavailable = true; ///< false when only this request is faulty
    bool passing = false;    ///< worth another attempt
    std::string message;     ///< cause and next step; never contains the key
};

/// Explains a result without a transcription.
ServiceError explain(const HttpResult& result, const HttpRecogniserSettings& settings, const std::string& url);

} // namespace quillo::server
