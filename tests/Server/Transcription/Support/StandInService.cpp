#include "Server/Transcription/Support/StandInService.h"

#include <arpa/inet.h>
#include <chrono>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace quillo::server::test {

StandInService::StandInService(std::function<Reply(const Request&)> answer)
    : m_answer(std::move(answer)), m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    if (bind(m_listener, plain, size) != 0 || listen(m_listener, 16) != 0 || getsockname(m_listener, plain, &size) != 0)
        throw std::runtime_error("no port for the stand-in service");
    m_port = ntohs(address.sin_port);
    m_acceptor = std::thread([this] { accept(); });
}

StandInService::~StandInService() {
    {
        const std::scoped_lock lock(m_mutex);
        m_stopping = true;
        for (const int connection : m_open)
            shutdown(connection, SHUT_RDWR);
    }
    shutdown(m_listener, SHUT_RDWR);
    m_changed.notify_all();
    m_acceptor.join();
    for (std::thread& thread : m_threads)
        thread.join();
    close(m_listener);
}

std::string StandInService::url() const { return "http://127.0.0.1:" + std::to_string(m_port); }

int StandInService::requests() {
    const std::scoped_lock lock(m_mutex);
    return m_requests;
}

bool StandInService::awaitRequests(int count) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(60), [&] { return m_requests >= count; });
}

void StandInService::accept() {
    for (;;) {
        const int connection = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
            return;
        const std::scoped_lock lock(m_mutex);
        if (m_stopping) {
            close(connection);
            return;
        }
        m_open.push_back(connection);
        m_threads.emplace_back([this, connection] { serve(connection); });
    }
}

void StandInService::serve(int connection) {
    Request request;
    std::string received;
    size_t expected = std::string::npos;
    char buffer[65536];
    while (request.head.empty() || request.body.size() < expected) {
        const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
        if (count <= 0)
            break;
        if (!request.head.empty()) {
            request.body.append(buffer, static_cast<size_t>(count));
            continue;
        }
        received.append(buffer, static_cast<size_t>(count));
        const size_t end = received.find("\r\n\r\n");
        if (end == std::string::npos)
            continue;
        request.head = received.substr(0, end);
        request.body = received.substr(end + 4);
        const size_t length = request.head.find("Content-Length: ");
        expected = length == std::string::npos ? 0 : std::stoul(request.head.substr(length + 16));
    }
    if (request.body.size() == expected) {
        std::unique_lock lock(m_mutex);
        request.number = ++m_requests;
        const Reply reply = m_answer(request);
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return !reply.never || m_stopping; });
        lock.unlock();
        const std::string text = "HTTP/1.1 " + std::to_string(reply.status) + " X\r\nConnection: close\r\n" +
                                 reply.headers + "Content-Length: " + std::to_string(reply.body.size()) + "\r\n\r\n" +
                                 reply.body;
        for (size_t sent = 0; sent < text.size() && !reply.never;) {
            const ssize_t count = send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
            if (count <= 0)
                break;
            sent += static_cast<size_t>(count);
        }
    }
    const std::scoped_lock lock(m_mutex);
    m_open.remove(connection);
    close(connection);
}

} // namespace quillo::server::test
