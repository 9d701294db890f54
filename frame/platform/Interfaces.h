// Facts about this computer's network interfaces.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

// The first IPv4 address of an interface that is up and not loopback, in network byte
// order; 127.0.0.1 when there is none.
std::uint32_t LocalIPv4Address();

// Dotted text of an IPv4 address held in network byte order.
std::string IPv4ToText(std::uint32_t networkOrder);

}  // namespace platform
