#include "Platform/Linux/Reachability/NetlinkState.h"

#include <array>
#include <ifaddrs.h>
#include <linux/rtnetlink.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <set>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <unistd.h>

namespace quillo::netlink {

namespace {

using Interfaces = std::set<unsigned>;

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

bool isRoutable(const sockaddr& address) {
    if (address.sa_family == AF_INET)
        return true;
    // A link-local address exists as soon as a cable is connected, and leads nowhere.
    return address.sa_family == AF_INET6 &&
           !IN6_IS_ADDR_LINKLOCAL(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
}

Interfaces interfacesWithAddress() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0)
        fail("getifaddrs");
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    Interfaces interfaces;
    for (const auto* entry = list; entry; entry = entry->ifa_next) {
        const bool isUp = (entry->ifa_flags & IFF_UP) && (entry->ifa_flags & IFF_RUNNING);
        if (isUp && !(entry->ifa_flags & IFF_LOOPBACK) && entry->ifa_addr && isRoutable(*entry->ifa_addr))
            interfaces.insert(::if_nametoindex(entry->ifa_name));
    }
    return interfaces;
}

bool leadsOver(const rtattr& attribute, const Interfaces& interfaces) {
    if (attribute.rta_type == RTA_OIF)
        return interfaces.contains(*static_cast<const unsigned*>(RTA_DATA(&attribute)));
    if (attribute.rta_type != RTA_MULTIPATH)
        return false;
    auto length = static_cast<int>(RTA_PAYLOAD(&attribute));
    for (const auto* hop = static_cast<const rtnexthop*>(RTA_DATA(&attribute)); RTNH_OK(hop, length);
         length -= RTNH_ALIGN(hop->rtnh_len), hop = RTNH_NEXT(hop))
        if (interfaces.contains(static_cast<unsigned>(hop->rtnh_ifindex)))
            return true;
    return false;
}

bool isDefaultRouteOver(const nlmsghdr& message, const Interfaces& interfaces) {
    if (message.nlmsg_type != RTM_NEWROUTE)
        return false;
    const auto* const route = static_cast<const rtmsg*>(NLMSG_DATA(&message));
    // "unreachable default" is a default route of another type.
    if (route->rtm_dst_len != 0 || route->rtm_type != RTN_UNICAST)
        return false;
    auto length = static_cast<int>(RTM_PAYLOAD(&message));
    for (const auto* attribute = RTM_RTA(route); RTA_OK(attribute, length); attribute = RTA_NEXT(attribute, length))
        if (leadsOver(*attribute, interfaces))
            return true;
    return false;
}

/// Reads one dump to its end, as the kernel requires.
bool readRoutes(int descriptor, const Interfaces& interfaces) {
    alignas(nlmsghdr) std::array<char, 32768> buffer{};
    bool found = false;
    for (;;) {
        const auto received = ::recv(descriptor, buffer.data(), buffer.size(), 0);
        if (received < 0 && errno == EINTR)
            continue;
        if (received <= 0)
            fail("recv of the routes");
        auto length = static_cast<size_t>(received);
        for (const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data()); NLMSG_OK(message, length);
             message = NLMSG_NEXT(message, length)) {
            if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR)
                return found;
            found = found || isDefaultRouteOver(*message, interfaces);
        }
    }
}

bool hasDefaultRoute(const Interfaces& interfaces) {
    const int descriptor = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (descriptor < 0)
        fail("socket(AF_NETLINK)");
    const std::unique_ptr<const int, void (*)(const int*)> owner(&descriptor, [](const int* open) { ::close(*open); });
    const timeval deadline{.tv_sec = 1, .tv_usec = 0};
    ::setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
    struct {
        nlmsghdr header;
        rtmsg route;
    } request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETROUTE;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.route.rtm_family = AF_UNSPEC;
    if (::send(descriptor, &request, sizeof request, 0) < 0)
        fail("send of the route request");
    return readRoutes(descriptor, interfaces);
}

} // namespace

NetworkPathStatus currentStatus(NetworkReach reach) {
    const auto interfaces = interfacesWithAddress();
    const bool satisfied = !interfaces.empty() && (reach == NetworkReach::localNetwork || hasDefaultRoute(interfaces));
    return satisfied ? NetworkPathStatus::satisfied : NetworkPathStatus::unsatisfied;
}

} // namespace quillo::netlink
