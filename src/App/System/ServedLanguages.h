#pragma once

#include "Concurrency/Clock.h"
#include "Concurrency/TaskRunner.h"
#include "Services/Auth/AuthHTTP.h"

#include <QObject>
#include <QStringList>

#include <optional>

namespace quillo {

/// The languages that the server in use understands, as its /health tells (docs/protocol.md, section 2). Main thread.
class ServedLanguages final : public QObject {
    Q_OBJECT
public:
    /// `health` is the address to ask. `clock` and `tasks` must outlive the object.
    ServedLanguages(QUrl health, AuthHTTP::Prepare prepare, Clock& clock, TaskRunner& tasks);

    /// Asks until the server answers: after a second, then twice as long each time up to a minute.
    void ask();
    /// ISO 639-1; nullopt as long as they are not known, and for a server that cannot tell.
    [[nodiscard]] const std::optional<QStringList>& languages() const { return m_languages; }
    /// False only for a language that the server is known not to understand. "auto" leaves the choice to the server.
    [[nodiscard]] bool understands(const QString& code) const;

Q_SIGNALS:
    void changed();

private:
    void receive(const AuthHTTPAnswer& answer);

    QUrl m_health;
    AuthHTTP m_http;
    Clock& m_clock;
    TaskRunner& m_tasks;
    std::optional<QStringList> m_languages;
    bool m_isAsking = false;
    Clock::Duration m_delay;
    Clock::TimerHandle m_again;
};

} // namespace quillo
