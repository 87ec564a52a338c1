#pragma once

#include "Services/Auth/TokenStorageProtocol.h"
#include "Services/Network/TrustedNetwork.h"

#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace quillo {

/// Limits of a connection.
struct WebSocketTimeouts {
    std::chrono::seconds handshake{60}; ///< from `connect` to the server's "connected"
    std::chrono::seconds idle{3600};    ///< the longest time between two messages of the server
    std::chrono::seconds total{3900};   ///< the longest lifetime of a connection
};

/// What the connection to the transcription server is built with.
struct WebSocketConfig {
    std::function<QUrl()> serverURL; ///< called on the main thread at each connect
    std::shared_ptr<TokenStorageProtocol> tokenStorage;
    std::optional<QString> staticToken; ///< takes precedence over the storage
    std::shared_ptr<TrustedNetwork> trust;
    QString clientVersion;
    bool allowsMissingToken = false; ///< for development: connects without a token
    WebSocketTimeouts timeouts;
    /// Sends suspend while more than this is unsent, in bytes: about 25 seconds of audio.
    qint64 unsentLimit = 1024LL * 1024;
};

} // namespace quillo
