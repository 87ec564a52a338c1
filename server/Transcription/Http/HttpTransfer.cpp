#include "Transcription/Http/HttpTransfer.h"

#include "Transcription/Recogniser.h"

#include <curl/curl.h>

#include <cstring>

namespace quillo::server {

namespace {

struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct FreeForm {
    void operator()(curl_mime* form) const { curl_mime_free(form); }
};
struct FreeEasy {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct FreeMulti {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};

void appendNumber(std::string& bytes, uint32_t value, int size) {
    for (int i = 0; i < size; ++i)
        bytes += static_cast<char>(value >> (8 * i) & 0xFF);
}

} // namespace

std::string writeWav(std::span<const int16_t> samples) {
    constexpr uint32_t rate = 16000;
    const auto size = static_cast<uint32_t>(samples.size() * sizeof(int16_t));
    std::string bytes = "RIFF";
    appendNumber(bytes, 36 + size, 4);
    bytes += "WAVEfmt ";
    appendNumber(bytes, 16, 4);
    appendNumber(bytes, 1, 2); // PCM
    appendNumber(bytes, 1, 2); // channels
    appendNumber(bytes, rate, 4);
    appendNumber(bytes, rate * 2, 4);
    appendNumber(bytes, 2, 2);
    appendNumber(bytes, 16, 2);
    bytes += "data";
    appendNumber(bytes, size, 4);
    const size_t header = bytes.size();
    bytes.resize(header + size);
    if (size > 0)
        std::memcpy(bytes.data() + header, samples.data(), size);
    return bytes;
}

struct HttpTransfer::Library {
    std::unique_ptr<CURLM, FreeMulti> multi{curl_multi_init()};
};

struct HttpTransfer::Request {
    CURLM* multi = nullptr;
    std::unique_ptr<CURL, FreeEasy> easy{curl_easy_init()};
    std::unique_ptr<curl_slist, FreeList> headers;
    std::unique_ptr<curl_mime, FreeForm> form;
    size_t limit = 0;
    bool added = false;
    HttpResult result;
    char error[CURL_ERROR_SIZE] = "";

    Request() = default;
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
    ~Request() {
        if (added)
            curl_multi_remove_handle(multi, easy.get());
    }

    void field(const char* name, const std::string& value, const char* file = nullptr, const char* type = nullptr) {
        curl_mimepart* part = curl_mime_addpart(form.get());
        curl_mime_name(part, name);
        curl_mime_data(part, value.data(), value.size());
        if (file != nullptr)
            curl_mime_filename(part, file);
        if (type != nullptr)
            curl_mime_type(part, type);
    }

    static size_t receive(char* data, size_t size, size_t count, void* self) {
        auto* request = static_cast<Request*>(self);
        if (request->result.body.size() + size * count > request->limit) {
            request->result.tooLarge = true;
            return 0;
        }
        request->result.body.append(data, size * count);
        return size * count;
    }

    HttpResult finish(CURLcode code) {
        curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &result.status);
        curl_off_t retryAfter = 0;
        curl_easy_getinfo(easy.get(), CURLINFO_RETRY_AFTER, &retryAfter);
        result.retryAfter = std::chrono::seconds(retryAfter);
        const char* location = nullptr;
        curl_easy_getinfo(easy.get(), CURLINFO_REDIRECT_URL, &location);
        result.location = location != nullptr ? location : "";
        result.answered = code == CURLE_OK;
        result.timedOut = code == CURLE_OPERATION_TIMEDOUT;
        result.neverConnected = code == CURLE_COULDNT_CONNECT || code == CURLE_COULDNT_RESOLVE_HOST;
        result.untrusted = code == CURLE_PEER_FAILED_VERIFICATION || code == CURLE_SSL_CACERT_BADFILE;
        if (code != CURLE_OK)
            result.failure = error[0] != '\0' ? std::string(error) : std::string(curl_easy_strerror(code));
        return std::move(result);
    }
};

HttpTransfer::HttpTransfer() {
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    m_library = std::make_unique<Library>();
    if (initialised != CURLE_OK || !m_library->multi)
        throw RecogniserUnavailable("The library for HTTP requests could not be started");
}

HttpTransfer::~HttpTransfer() = default;

void HttpTransfer::post(const HttpRecogniserSettings& settings, const std::string& url, const FormFields& fields,
                        std::span<const int16_t> samples) {
    cancel();
    auto request = std::make_unique<Request>();
    CURL* easy = request->easy.get();
    request->multi = m_library->multi.get();
    request->limit = settings.maxResponseBytes;
    request->form.reset(curl_mime_init(easy));
    request->field("file", writeWav(samples), "speech.wav", "audio/wav");
    for (const auto& [name, value] : fields)
        request->field(name.c_str(), value);
    // Do not wait for "100 Continue": several services never send it.
    curl_slist* headers = curl_slist_append(nullptr, "Expect:");
    if (!settings.key.empty())
        headers = curl_slist_append(headers, ("Authorization: Bearer " + settings.key).c_str());
    request->headers.reset(headers);

    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    // A redirect could send speech and key to another host.
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!settings.authorityFile.empty())
        curl_easy_setopt(easy, CURLOPT_CAINFO, settings.authorityFile.c_str());
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(settings.connectTimeout.count()));
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(settings.requestTimeout.count()));
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "quillo-server");
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, request->headers.get());
    curl_easy_setopt(easy, CURLOPT_MIMEPOST, request->form.get());
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, request->error);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Request::receive);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, request.get());
    request->added = curl_multi_add_handle(request->multi, easy) == CURLM_OK;
    m_request = std::move(request);
}

void HttpTransfer::cancel() { m_request.reset(); }

bool HttpTransfer::running() const { return m_request != nullptr; }

std::optional<HttpResult> HttpTransfer::wait(std::chrono::milliseconds longest) {
    CURLM* multi = m_library->multi.get();
    const auto ended = [&]() -> std::optional<HttpResult> {
        int active = 0;
        curl_multi_perform(multi, &active);
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi, &left))
            if (m_request && message->msg == CURLMSG_DONE && message->easy_handle == m_request->easy.get()) {
                HttpResult result = m_request->finish(message->data.result);
                m_request.reset();
                return result;
            }
        return std::nullopt;
    };
    if (auto result = ended())
        return result;
    curl_multi_poll(multi, nullptr, 0, static_cast<int>(longest.count()), nullptr);
    return ended();
}

void HttpTransfer::wake() { curl_multi_wakeup(m_library->multi.get()); }

} // namespace quillo::server
