#pragma once

#include "App/System/LocalServer.h"
#include "Core/ServerEnvironment.h"
#include "Core/UserMessage.h"

#include <memory>
#include <optional>

namespace quillo {

/// The server to dictate with: the one that the environment names, else one of our own on this machine. Main thread.
class ServerChoice {
public:
    /// Binds the port of a server of our own. Throws std::invalid_argument when the environment names something that is
    /// not a server address; `what()` says what to do.
    explicit ServerChoice(Clock& clock);

    [[nodiscard]] const ServerEnvironment& environment() const { return *m_environment; }
    /// Why there is no server; dictations then wait as audio.
    [[nodiscard]] const std::optional<UserMessage>& problem() const { return m_problem; }
    /// Starts the server of our own, if there is one.
    void start();

private:
    ServerEnvironment choose(Clock& clock);

    std::unique_ptr<LocalServer> m_localServer;
    std::optional<UserMessage> m_problem;
    std::optional<ServerEnvironment> m_environment;
};

} // namespace quillo
