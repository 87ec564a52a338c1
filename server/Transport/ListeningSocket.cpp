#include "Transport/ListeningSocket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace quillo::server {
namespace {

constexpr int firstInheritedDescriptor = 3;

std::optional<long> toNumber(std::string_view text) {
    long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

[[noreturn]] void refuse(const std::string& listen) {
    throw std::runtime_error("cannot listen on \"" + listen +
                             "\": give ADDRESS:PORT such as 127.0.0.1:48650 or [::1]:48650, or fd:N");
}

int optionOf(int descriptor, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    return ::getsockopt(descriptor, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

ListeningSocket adopt(int descriptor) {
    const int family = optionOf(descriptor, SO_DOMAIN);
    if (optionOf(descriptor, SO_ACCEPTCONN) != 1 || optionOf(descriptor, SO_TYPE) != SOCK_STREAM ||
        (family != AF_INET && family != AF_INET6))
        throw std::runtime_error("descriptor " + std::to_string(descriptor) +
                                 " is not a listening TCP socket: pass one that listen(2) was called on");
    // A process that keeps the socket for a restart shares this setting; it works with a non-blocking socket too.
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    return {descriptor, family == AF_INET6};
}

ListeningSocket bindTo(const sockaddr* address, socklen_t size, const std::string& listen) {
    const int descriptor = ::socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    if (descriptor >= 0)
        ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (descriptor < 0 || ::bind(descriptor, address, size) != 0 || ::listen(descriptor, SOMAXCONN) != 0) {
        const int error = errno;
        if (descriptor >= 0)
            ::close(descriptor);
        throw std::runtime_error(
            "cannot listen on " + listen + ": " + std::strerror(error) +
            (error == EADDRINUSE ? "; stop the other program or choose a port with --listen" : ""));
    }
    return {descriptor, address->sa_family == AF_INET6};
}

} // namespace

ListeningSocket openListeningSocket(const std::string& listen) {
    if (listen.starts_with("fd:")) {
        const auto descriptor = toNumber(std::string_view(listen).substr(3));
        if (!descriptor || *descriptor < 0 || *descriptor > 1 << 20)
            refuse(listen);
        return adopt(static_cast<int>(*descriptor));
    }
    const auto colon = listen.rfind(':');
    if (colon == std::string::npos)
        refuse(listen);
    std::string host = listen.substr(0, colon);
    const auto port = toNumber(std::string_view(listen).substr(colon + 1));
    if (!port || *port < 0 || *port > 65535)
        refuse(listen);
    if (host == "localhost")
        host = "127.0.0.1";
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_port = htons(static_cast<uint16_t>(*port));
        if (::inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &address.sin6_addr) != 1)
            refuse(listen);
        return bindTo(reinterpret_cast<const sockaddr*>(&address), sizeof address, listen);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(*port));
    if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1)
        refuse(listen);
    return bindTo(reinterpret_cast<const sockaddr*>(&address), sizeof address, listen);
}

std::optional<std::string> inheritedSocket() {
    const char* process = std::getenv("LISTEN_PID");
    const char* count = std::getenv("LISTEN_FDS");
    if (!process || !count || toNumber(process) != ::getpid() || toNumber(count) == 0)
        return std::nullopt;
    if (toNumber(count) != 1)
        throw std::runtime_error("LISTEN_FDS hands over " + std::string(count) +
                                 " sockets: configure the service with exactly one");
    return "fd:" + std::to_string(firstInheritedDescriptor);
}

} // namespace quillo::server
