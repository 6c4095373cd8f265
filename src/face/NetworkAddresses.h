#pragma once

#include <set>
#include <string>
#include <vector>

// What this machine is called on its networks. Thread-safe.
namespace vexo::face {

// The IPv4 addresses of the interfaces that are up, loopback ones last, as text.
[[nodiscard]] std::vector<std::string> interfaceAddresses();

// The names a page may use for this machine: its host name, that name with ".local"
// (multicast DNS), every interface address (IPv6 ones in brackets), and `extra`.
[[nodiscard]] std::set<std::string> namesOfThisMachine(const std::vector<std::string>& extra);

} // namespace vexo::face
