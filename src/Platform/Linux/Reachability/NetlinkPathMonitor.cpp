#include "Platform/Linux/Reachability/NetlinkPathMonitor.h"

#include "Core/Log.h"
#include "Platform/Linux/Reachability/NetlinkState.h"

#include <array>
#include <linux/rtnetlink.h>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace quillo {

namespace {

int openSubscription() {
    const int descriptor = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "socket(AF_NETLINK)");
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
        const int reason = errno;
        ::close(descriptor);
        throw std::system_error(reason, std::generic_category(), "bind(AF_NETLINK)");
    }
    return descriptor;
}

class NetlinkPathMonitor final : public NetworkPathMonitor {
public:
    explicit NetlinkPathMonitor(NetworkReach reach) : m_reach(reach) {}
    ~NetlinkPathMonitor() override { stop(); }

    void start(Update update) override {
        const std::lock_guard lock(m_mutex);
        if (m_thread.joinable())
            return;
        // Subscribe before the first query, so that no change is missed between the two.
        m_changes = openSubscription();
        m_wake = ::eventfd(0, EFD_CLOEXEC);
        const auto first = netlink::currentStatus(m_reach);
        update(first);
        m_thread =
            std::thread([changes = m_changes, wake = m_wake, reach = m_reach, update = std::move(update), first] {
                ::pthread_setname_np(::pthread_self(), "network-monitor"); // the kernel keeps fifteen characters
                watch(changes, wake, reach, update, first);
            });
    }

    void stop() override {
        const std::lock_guard lock(m_mutex);
        if (!m_thread.joinable())
            return;
        const uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(m_wake, &one, sizeof one);
        m_thread.join();
        ::close(m_wake);
        ::close(m_changes);
    }

private:
    static void watch(int changes, int wake, NetworkReach reach, const Update& update, NetworkPathStatus status) {
        std::array<pollfd, 2> descriptors{pollfd{wake, POLLIN, 0}, pollfd{changes, POLLIN, 0}};
        for (;;) {
            if (::poll(descriptors.data(), descriptors.size(), -1) < 0 && errno != EINTR)
                return;
            if (descriptors[0].revents)
                return;
            if (!descriptors[1].revents)
                continue;
            discard(changes);
            try {
                const auto now = netlink::currentStatus(reach);
                if (std::exchange(status, now) != now)
                    update(now);
            } catch (const std::system_error& error) {
                appLog(QStringLiteral("[NetworkMonitor] ⚠️ The state of the network could not be read (%1); keeping "
                                      "the last one until the next change")
                           .arg(QString::fromUtf8(error.what())),
                       LogLevel::warn, QStringLiteral("NetworkMonitor"));
            }
        }
    }

    /// The kind of change does not matter, because the whole state is read again; neither does an overflow that lost
    /// events.
    static void discard(int changes) {
        std::array<char, 8192> buffer{};
        while (::recv(changes, buffer.data(), buffer.size(), 0) > 0 || errno == EINTR || errno == ENOBUFS)
            errno = 0;
    }

    NetworkReach m_reach;
    std::mutex m_mutex;
    std::thread m_thread;
    int m_changes = -1;
    int m_wake = -1;
};

} // namespace

std::unique_ptr<NetworkPathMonitor> createNetlinkPathMonitor(NetworkReach reach) {
    return std::make_unique<NetlinkPathMonitor>(reach);
}

} // namespace quillo
