#include "Transport/HealthEndpoint.h"

#include "Foundation/Log.h"

namespace quillo::server {
namespace {

bool canWrite(ConnectionContext& context) {
    try {
        context.accounts->check();
        context.tasks->check();
        return true;
    } catch (const std::exception& error) {
        log(LogLevel::error, "health", error.what());
        return false;
    }
}

HttpResponse healthOf(ConnectionContext& context) {
    const bool database = canWrite(context);
    const bool recogniser = context.recogniser->isAvailable();
    const bool works = database && recogniser && !context.stopping;
    HttpResponse response{works ? 200 : 503, Json::object(), {}};
    response.body["status"] = context.stopping ? "draining" : works ? "ok" : "failing";
    response.body["version"] = QUILLO_VERSION;
    response.body["database"] = database ? "ok" : "failing";
    response.body["recogniser"] = recogniser ? "ok" : "unavailable";
    if (const auto languages = context.recogniser->languages())
        response.body["languages"] = *languages;
    return response;
}

} // namespace

void addHealthEndpoint(ConnectionContext& context) {
    context.router.add("GET", "/health",
                       {.handler = [&context](const HttpRequest&) { return healthOf(context); }, .isPublic = true});
}

} // namespace quillo::server
