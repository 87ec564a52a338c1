#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace quillo::server::test {

/// A little HTTP server on loopback, one request per connection, that answers what a test says. Its function is called
/// from the connections' threads, one call at a time.
class StandInService {
public:
    struct Request {
        std::string head; ///< request line and headers
        std::string body;
        int number = 0; ///< from 1
    };
    struct Reply {
        int status = 200;
        std::string body = {};
        std::string headers = {}; ///< each ended by CRLF
        bool never = false;       ///< keeps the client waiting until the service is destroyed
    };

    explicit StandInService(std::function<Reply(const Request&)> answer);
    StandInService(const StandInService&) = delete;
    StandInService& operator=(const StandInService&) = delete;
    ~StandInService();

    [[nodiscard]] std::string url() const;
    [[nodiscard]] int requests();
    /// False when a watchdog ran out before that many requests came.
    bool awaitRequests(int count);

private:
    void accept();
    void serve(int connection);

    std::function<Reply(const Request&)> m_answer;
    int m_listener = -1;
    int m_port = 0;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_stopping = false;
    int m_requests = 0;
    std::list<int> m_open;
    std::list<std::thread> m_threads;
    std::thread m_acceptor;
};

} // namespace quillo::server::test
