#include "Transport/FileEndpoints.h"

#include "Foundation/Log.h"
#include "Uploads/UploadError.h"
#include "Uploads/UploadForm.h"

#include <cmath>

namespace quillo::server {
namespace {

/// Size of a form without its file: boundaries, part headers and short texts.
constexpr uint64_t formBytes = uint64_t{256} * 1024;

HttpResponse describe(const UploadError& error) {
    const char* word = error.status() >= 500 ? "server_error" : "invalid_request";
    if (error.status() == 429 || error.status() == 507)
        return retryLater(error.status(), error.code(), error.what(), std::chrono::seconds(60));
    return errorResponse(error.status(), word, error.code(), error.what());
}

HttpResponse notSignedIn() {
    auto response = errorResponse(401, "invalid_token", "INVALID_TOKEN",
                                  "The access token is missing, not valid or expired; refresh it.");
    response.headers.emplace_back("WWW-Authenticate", "Bearer");
    return response;
}

std::optional<User> userOf(AccountStore& accounts, const HttpRequest& request) {
    const auto token = request.bearerToken();
    return token ? accounts.userOf(*token) : std::nullopt;
}

/// The result of a finished task, as the answer to its upload.
HttpResponse resultOf(const Task& task) {
    if (task.status == TaskStatus::completed)
        return {200, parseJson(task.result).value_or(Json::object()), {}};
    if (task.errorStatus == 503)
        return retryLater(503, task.errorCode, task.error, std::chrono::seconds(30));
    return errorResponse(task.errorStatus, task.errorStatus >= 500 ? "server_error" : "invalid_request", task.errorCode,
                         task.error);
}

HttpResponse stillRunning(const Task& task) {
    HttpResponse response{202, Json{{"status", "processing"}, {"task_id", task.id}}, {}};
    response.body["code"] = "STILL_PROCESSING";
    response.body["detail"] =
        "The recording is still being recognised, which goes on; send the same request again to get its text.";
    response.headers.emplace_back("Retry-After", "30");
    return response;
}

class Upload final : public BodyReceiver {
public:
    Upload(FileServices services, std::string userId, TaskKind kind, Limits::Place place,
           const std::string& contentType)
        : m_services(std::move(services)), m_userId(std::move(userId)), m_kind(kind), m_place(std::move(place)),
          m_form(m_services.tasks->form(contentType)) {}

    std::optional<HttpResponse> receive(std::string_view bytes) override {
        try {
            m_form->push(bytes);
            return std::nullopt;
        } catch (const UploadError& error) {
            return refuse(error);
        }
    }

    Answer finish() override {
        try {
            m_form->finish();
            const Task task = m_services.tasks->submit(m_userId, m_kind, *m_form);
            if (task.isOver())
                return resultOf(task);
            LaterResponse later;
            later.whenReady = [tasks = m_services.tasks, userId = m_userId, id = task.id](LaterResponse::Done done) {
                tasks->whenOver(userId, id, [done = std::move(done)](const Task& over) { done(resultOf(over)); });
            };
            later.late = stillRunning(task);
            return later;
        } catch (const UploadError& error) {
            return refuse(error);
        }
    }

private:
    HttpResponse refuse(const UploadError& error) {
        log(LogLevel::warning, "uploads", "refused an upload of user " + m_userId + ": " + error.code());
        m_form.reset(); // also deletes its file
        return describe(error);
    }

    FileServices m_services;
    std::string m_userId;
    TaskKind m_kind;
    Limits::Place m_place;
    std::unique_ptr<UploadForm> m_form;
};

Router::Opener opener(const FileServices& services, TaskKind kind) {
    using Opened = std::variant<HttpResponse, std::unique_ptr<BodyReceiver>>;
    return [services, kind](const HttpRequest& request) -> Opened {
        const auto user = userOf(*services.accounts, request);
        if (!user)
            return notSignedIn();
        auto admission = services.uploads->admit(user->id);
        if (admission.verdict == Limits::Verdict::full)
            return retryLater(503, "SERVER_FULL", "The server takes no more uploads at the moment; try again.",
                              std::chrono::seconds(10));
        if (admission.verdict == Limits::Verdict::fullForKey)
            return retryLater(429, "TOO_MANY_UPLOADS", "This account has too many uploads under way.",
                              std::chrono::seconds(10));
        try {
            return std::make_unique<Upload>(services, user->id, kind, std::move(admission.place), request.contentType);
        } catch (const UploadError& error) {
            return describe(error);
        }
    };
}

HttpResponse poll(TaskService& tasks, const std::optional<Task>& task) {
    if (!task || task->request.kind != TaskKind::diarization)
        return errorResponse(404, "not_found", "NOT_FOUND", "There is no such task; it may have expired.");
    HttpResponse response{200, Json::object(), {}};
    if (task->status == TaskStatus::completed)
        response.body = parseJson(task->result).value_or(Json::object());
    response.body["task_id"] = task->id;
    if (task->status == TaskStatus::completed) {
        response.body["status"] = "completed";
    } else if (task->status == TaskStatus::failed) {
        response.body["status"] = "failed";
        response.body["message"] = task->error;
        response.body["error"] = task->error;
        response.body["code"] = task->errorCode;
    } else {
        const auto percent = std::lround(std::floor(tasks.progress(task->id) * 100));
        response.body["status"] = "processing";
        response.body["message"] = "Recognised " + std::to_string(percent) + " % of the recording.";
    }
    return response;
}

} // namespace

void addFileEndpoints(Router& router, const FileServices& services) {
    const auto post = [&](const std::string& path, TaskKind kind) {
        Router::Route route;
        route.open = opener(services, kind);
        route.maxBodyBytes = services.maxUploadBytes + formBytes;
        route.contentType = "multipart/form-data";
        router.add("POST", "/api/v1" + path, route);
        router.add("POST", path, route);
    };
    post("/transcription/file", TaskKind::transcription);
    post("/transcription/diarize", TaskKind::diarization);

    using Find = std::function<std::optional<Task>(const std::string& userId, const std::string& parameter)>;
    const auto get = [&](const std::string& path, const Find& find) {
        Router::Route route;
        route.handler = [services, find](const HttpRequest& request) {
            const auto user = userOf(*services.accounts, request);
            return user ? poll(*services.tasks, find(user->id, request.parameter)) : notSignedIn();
        };
        router.add("GET", "/api/v1" + path, route);
        router.add("GET", path, route);
    };
    get("/transcription/diarization/{task}",
        [tasks = services.tasks](const std::string& user, const std::string& id) { return tasks->find(user, id); });
    get("/transcription/recording/{recording}/diarization",
        [tasks = services.tasks](const std::string& user, const std::string& id) {
            return tasks->findDiarization(user, id);
        });
}

} // namespace quillo::server
