#include "face/NetworkAddresses.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

namespace vexo::face {

namespace {

// Every address of the interfaces that are up: {text, is IPv6, is loopback}.
struct InterfaceAddress {
    std::string text;
    bool v6 = false;
    bool loopback = false;
};

std::vector<InterfaceAddress> allAddresses() {
    std::vector<InterfaceAddress> result;
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0)
        return result;
    for (ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || !(entry->ifa_flags & IFF_UP))
            continue;
        char text[INET6_ADDRSTRLEN] = {};
        int family = entry->ifa_addr->sa_family;
        const bool loopback = entry->ifa_flags & IFF_LOOPBACK;
        if (family == AF_INET) {
            auto* address = reinterpret_cast<sockaddr_in*>(entry->ifa_addr);
            if (::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text))
                result.push_back({text, false, loopback});
        } else if (family == AF_INET6) {
            auto* address = reinterpret_cast<sockaddr_in6*>(entry->ifa_addr);
            // Link-local addresses need a zone, which no URL a phone scans can carry.
            if (IN6_IS_ADDR_LINKLOCAL(&address->sin6_addr))
                continue;
            if (::inet_ntop(AF_INET6, &address->sin6_addr, text, sizeof text))
                result.push_back({text, true, loopback});
        }
    }
    ::freeifaddrs(list);
    return result;
}

} // namespace

std::vector<std::string> interfaceAddresses() {
    std::vector<std::string> outside;
    std::vector<std::string> loopback;
    for (const auto& address : allAddresses()) {
        if (!address.v6)
            (address.loopback ? loopback : outside).push_back(address.text);
    }
    outside.insert(outside.end(), loopback.begin(), loopback.end());
    return outside;
}

std::set<std::string> namesOfThisMachine(const std::vector<std::string>& extra) {
    std::set<std::string> names(extra.begin(), extra.end());
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) == 0 && host[0]) {
        names.insert(host);
        names.insert(std::string(host) + ".local");
    }
    for (const auto& address : allAddresses())
        names.insert(address.v6 ? "[" + address.text + "]" : address.text);
    return names;
}

} // namespace vexo::face
