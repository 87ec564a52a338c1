#include "Server/Transcription/Support/StandInService.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace quillo::server::test {

StandInService::StandInService(std::function<Reply(const Request&)> answer)
    : answer_(std::move(answer)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, plain, size) != 0 || listen(listener_, 16) != 0 || getsockname(listener_, plain, &size) != 0)
        throw std::runtime_error("no port for the stand-in service");
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { accept(); });
}

StandInService::~StandInService() {
    {
        const std::scoped_lock lock(mutex_);
        stopping_ = true;
        for (const int connection : open_)
            shutdown(connection, SHUT_RDWR);
    }
    shutdown(listener_, SHUT_RDWR);
    changed_.notify_all();
    acceptor_.join();
    for (std::thread& thread : threads_)
        thread.join();
    close(listener_);
}

std::string StandInService::url() const { return "http://127.0.0.1:" + std::to_string(port_); }

int StandInService::requests() {
    const std::scoped_lock lock(mutex_);
    return requests_;
}

bool StandInService::awaitRequests(int count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(60), [&] { return requests_ >= count; });
}

void StandInService::accept() {
    for (;;) {
        const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
            return;
        const std::scoped_lock lock(mutex_);
        if (stopping_) {
            close(connection);
            return;
        }
        open_.push_back(connection);
        threads_.emplace_back([this, connection] { serve(connection); });
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
        std::unique_lock lock(mutex_);
        request.number = ++requests_;
        const Reply reply = answer_(request);
        changed_.notify_all();
        changed_.wait(lock, [&] { return !reply.never || stopping_; });
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
    const std::scoped_lock lock(mutex_);
    open_.remove(connection);
    close(connection);
}

} // namespace quillo::server::test
