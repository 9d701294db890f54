#include "frame/platform/Interfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace platform {

std::uint32_t LocalIPv4Address() {
  std::uint32_t found = htonl(INADDR_LOOPBACK);
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return found;
  for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    if ((entry->ifa_flags & IFF_UP) == 0 || (entry->ifa_flags & IFF_LOOPBACK) != 0) continue;
    found = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr.s_addr;
    break;
  }
  freeifaddrs(list);
  return found;
}

std::string IPv4ToText(std::uint32_t networkOrder) {
  in_addr address{};
  address.s_addr = networkOrder;
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

}  // namespace platform
