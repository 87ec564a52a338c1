#pragma once

#include "Transcription/Http/HttpRecogniserSettings.h"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace quillo::server {

/// The result of a request.
struct HttpResult {
    bool answered = false; ///< false: `failure` says why there is no status
    bool timedOut = false;
    bool neverConnected = false;
    bool untrusted = false; ///< the certificate could not be verified
    bool tooLarge = false;  ///< the answer exceeded the limit and was truncated
    long status = 0;
    std::chrono::seconds retryAfter{0};
    std::string location; ///< of a redirection
    std::string failure;
    std::string body;
};

using FormFields = std::vector<std::pair<std::string, std::string>>;

/// Runs one request after another on the thread that calls `wait`.
class HttpTransfer {
public:
    HttpTransfer();
    HttpTransfer(const HttpTransfer&) = delete;
    HttpTransfer& operator=(const HttpTransfer&) = delete;
    ~HttpTransfer();

    /// Posts a multipart form with a WAV file to `url`. One request at a time.
    void post(const HttpRecogniserSettings& settings, const std::string& url, const FormFields& fields,
              std::span<const int16_t> samples);
    void cancel();
    [[nodiscard]] bool running() const;
    /// Runs the request until it ends, `wake` is called or the time is over. Returns the result once, when it has
    /// ended.
    std::optional<HttpResult> wait(std::chrono::milliseconds longest);
    /// Ends the current `wait` or the next one. Thread-safe.
    void wake();

private:
    struct Request;
    struct Library;
    std::unique_ptr<Library> m_library;
    std::unique_ptr<Request> m_request;
};

/// A 16 kHz mono 16-bit WAV file.
std::string writeWav(std::span<const int16_t> samples);

} // namespace quillo::server
