#pragma once

#include "Accounts/AccountStore.h"
#include "Tasks/TaskService.h"
#include "Transcription/Recogniser.h"
#include "Transport/Asio.h"
#include "Transport/ConnectionControl.h"
#include "Transport/Limits.h"
#include "Transport/OpenStreams.h"
#include "Transport/Router.h"

#include <boost/asio/ssl/context.hpp>
#include <boost/asio/thread_pool.hpp>

#include <atomic>
#include <mutex>

namespace quillo::server {

/// Shared by the connections of one server. Outlives them.
struct ConnectionContext {
    explicit ConnectionContext(ServerOptions set) : options(std::move(set)), uploadWork(options.uploadThreads) {}

    ServerOptions options;
    Router router;
    std::shared_ptr<AccountStore> accounts;
    std::shared_ptr<Recogniser> recogniser;
    std::shared_ptr<Limits> connections;
    std::shared_ptr<Limits> sessions;
    std::shared_ptr<Limits> uploads;
    std::shared_ptr<TaskService> tasks;
    std::shared_ptr<OpenStreams> streams = std::make_shared<OpenStreams>();
    std::atomic<bool> stopping = false;
    /// Threads that may block, in separate pools, so that a slow disk during an upload does not delay dictations.
    asio::thread_pool streamWork{2};  ///< upgrades, and opening and ending recognisers
    asio::thread_pool requestWork{2}; ///< requests except uploads
    asio::thread_pool uploadWork;     ///< all work on uploads

    /// The certificate in use; replaced when it is renewed. Thread-safe.
    std::shared_ptr<asio::ssl::context> tls() {
        const std::scoped_lock lock(m_mutex);
        return m_tls;
    }
    void setTls(std::shared_ptr<asio::ssl::context> tls) {
        const std::scoped_lock lock(m_mutex);
        m_tls = std::move(tls);
    }

private:
    std::mutex m_mutex;
    std::shared_ptr<asio::ssl::context> m_tls;
};

/// One connection from its first byte to its end, shared by its coroutines.
struct ConnectionState {
    std::shared_ptr<ConnectionContext> context;
    std::shared_ptr<ConnectionControl> control;
    Peer peer;
    Limits::Admission admission;
    bool isOtherUser = false; ///< from a user of this machine who is not served
};

} // namespace quillo::server
