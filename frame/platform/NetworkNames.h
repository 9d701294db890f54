// Names a receiving client is given on its command line, turned into IPv4 addresses.
#pragma once

#include <string>

namespace platform {

// Dotted IPv4 text of `host`, which may be dotted text already or a host name.
bool ResolveIPv4Host(const std::string& host, std::string& dotted);

// Dotted IPv4 address of the network interface called `name` (such as "eth0").
bool InterfaceIPv4Address(const std::string& name, std::string& dotted);

}  // namespace platform
