#include "App/System/ServedLanguages.h"

#include "Core/Json.h"
#include "Core/Log.h"

#include <algorithm>

namespace quillo {

namespace {

using namespace std::chrono_literals;

constexpr Clock::Duration firstDelay = 1s;
constexpr Clock::Duration longestDelay = 60s;
constexpr std::chrono::milliseconds requestTimeout = 10s;

std::optional<QStringList> languagesIn(const json::Json& health) {
    const auto* const found = json::find(health, "languages");
    if (!found || !found->is_array())
        return std::nullopt;
    QStringList codes;
    for (const auto& item : *found)
        if (QString code; json::convert(item, code))
            codes << code;
    return codes.isEmpty() ? std::nullopt : std::optional(codes);
}

} // namespace

ServedLanguages::ServedLanguages(QUrl health, AuthHTTP::Prepare prepare, Clock& clock, TaskRunner& tasks)
    : m_health(std::move(health)), m_http(std::move(prepare)), m_clock(clock), m_tasks(tasks), m_delay(firstDelay) {}

bool ServedLanguages::understands(const QString& code) const {
    return !m_languages || code == QStringLiteral("auto") || m_languages->contains(code);
}

void ServedLanguages::ask() {
    if (std::exchange(m_isAsking, true))
        return;
    m_tasks.run(QStringLiteral("served languages"), [this](std::stop_token) -> Task<> {
        receive(co_await m_http.send({.method = "GET", .url = m_health}, requestTimeout));
    });
}

void ServedLanguages::receive(const AuthHTTPAnswer& answer) {
    m_isAsking = false;
    const auto health = json::parse(answer.body);
    if (!health || !json::find(*health, "status")) {
        m_again = m_clock.callLater(m_delay, [this] { ask(); });
        m_delay = std::min(2 * m_delay, longestDelay);
        return;
    }
    m_delay = firstDelay;
    const auto languages = languagesIn(*health);
    if (languages == m_languages)
        return;
    m_languages = languages;
    appLog(QStringLiteral("[App] The server understands: %1")
               .arg(languages ? languages->join(QStringLiteral(", ")) : QStringLiteral("unknown")),
           LogLevel::info, QStringLiteral("App"));
    Q_EMIT changed();
}

} // namespace quillo
