#include "Transcription/Http/ServiceErrors.h"

#include "Transcription/Http/TranscriptionResponse.h"

namespace quillo::server {

namespace {

/// The address without a name and password written into it.
std::string withoutCredentials(const std::string& url) {
    const size_t host = url.find("://") + 3;
    const size_t at = url.substr(0, url.find('/', host)).rfind('@');
    return at == std::string::npos ? url : url.substr(0, host) + url.substr(at + 1);
}

/// The service's text, unless it repeats the key.
std::string quoted(const HttpResult& result, const std::string& key) {
    const std::string text = readServiceError(result.body);
    if (text.empty() || (!key.empty() && text.find(key) != std::string::npos))
        return {};
    return " (\"" + text + "\")";
}

ServiceError explainTransport(const HttpResult& result, const std::string& service) {
    if (result.tooLarge)
        return {true, false, service + " sent more than a transcription can be: check that its address is right"};
    if (result.untrusted)
        return {true, false,
                service + " could not be verified (" + result.failure +
                    "): name the file with the certificates of its authority with --recogniser-authority"};
    if (result.timedOut)
        return {true, false,
                service + " did not answer in time (" + result.failure +
                    "): check that it runs, or allow it more time with --recogniser-timeout"};
    return {true, true, service + " cannot be reached (" + result.failure + "): check its address and that it runs"};
}

} // namespace

ServiceError explain(const HttpResult& result, const HttpRecogniserSettings& settings, const std::string& url) {
    const std::string service = "The transcription service at " + withoutCredentials(url);
    if (!result.answered)
        return explainTransport(result, service);
    const std::string status = " with status " + std::to_string(result.status);
    switch (result.status) {
    case 200:
        return {true, false,
                service + " did not answer with a transcription: check that its address and path are "
                          "those of an OpenAI-compatible service"};
    case 401:
    case 403:
        return {true, false, service + " refused the key" + status + ": check the key in --recogniser-key-file"};
    case 404:
    case 405:
        return {true, false,
                service + " knows no such path or model" + status + quoted(result, settings.key) +
                    ": check --recogniser-url, --recogniser-path and --recogniser-model"};
    case 413:
        return {false, false, service + " found the recording too large" + status};
    case 429: {
        const auto wait = std::to_string(result.retryAfter.count());
        return {true, true,
                service + " has too much to do" + status + quoted(result, settings.key) + ": try again " +
                    (result.retryAfter.count() > 0 ? "in " + wait + " seconds" : "later")};
    }
    default:
        break;
    }
    if (result.status >= 300 && result.status < 400)
        return {true, false,
                service + " redirects to " + withoutCredentials(result.location) +
                    ", which is not followed: give its new address"};
    if (result.status >= 500)
        return {true, true, service + " failed" + status + quoted(result, settings.key) + ": try again later"};
    return {false, false, service + " refused the request" + status + quoted(result, settings.key)};
}

} // namespace quillo::server
