#pragma once

#include "App/System/LocalServer.h"
#include "Core/ServerEnvironment.h"
#include "Core/UserMessage.h"

#include <memory>
#include <optional>

namespace quillo {

/// The server for dictation: the one named by the environment, otherwise our own on this machine. Main thread.
class ServerChoice {
public:
    /// Binds the port of our own server. Throws std::invalid_argument when the environment contains an invalid server
    /// address; `what()` gives the next step.
    explicit ServerChoice(Clock& clock);

    [[nodiscard]] const ServerEnvironment& environment() const { return *m_environment; }
    /// The host with the port of today: a server that the user runs on this machine may have moved to another one.
    [[nodiscard]] QString host() const;
    /// An address of `environment` at that host; any other address unchanged.
    [[nodiscard]] QUrl current(QUrl url) const;
    /// Why there is no server, so that dictations wait as audio.
    [[nodiscard]] const std::optional<UserMessage>& problem() const { return m_problem; }
    /// Starts our own server, if there is one.
    void start();

private:
    ServerEnvironment choose(Clock& clock);

    std::unique_ptr<LocalServer> m_localServer;
    std::optional<UserMessage> m_problem;
    std::optional<ServerEnvironment> m_environment;
};

} // namespace quillo
