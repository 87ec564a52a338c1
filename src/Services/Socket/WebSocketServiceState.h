#pragma once

#include "Core/Log.h"
#include "Services/Socket/WebSocketServiceProtocol.h"

#include <atomic>
#include <mutex>
#include <source_location>

namespace quillo {

/// The state of the connection that other threads may read.
struct WebSocketServiceState {
    std::atomic<bool> isConnected = false;
    std::atomic<bool> isConnecting = false;
    std::atomic<uint64_t> framesReceived = 0;

    [[nodiscard]] SessionTexts texts() const {
        const std::lock_guard lock(m_mutex);
        return m_texts;
    }
    /// Runs `change` on the texts under the lock and returns its result.
    template <class Change>
    auto changeTexts(Change change) {
        const std::lock_guard lock(m_mutex);
        return change(m_texts);
    }

private:
    mutable std::mutex m_mutex;
    SessionTexts m_texts;
};

/// Logs from the main thread's queue, so that the file system never delays the socket. Any thread.
inline void logFromMain(const QString& message, LogLevel level = LogLevel::info,
                        const QString& category = QStringLiteral("WebSocket"),
                        std::source_location where = std::source_location::current()) {
    EventExecutor::main().post([=] { appLog(message, level, category, where); });
}

} // namespace quillo
