#include "frame/platform/NetworkNames.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

namespace platform {

namespace {

std::string Dotted(const in_addr& address) {
  char text[INET_ADDRSTRLEN] = {0};
  if (inet_ntop(AF_INET, &address, text, sizeof text) == nullptr) return "";
  return text;
}

}  // namespace

bool ResolveIPv4Host(const std::string& host, std::string& dotted) {
  in_addr direct{};
  if (inet_pton(AF_INET, host.c_str(), &direct) == 1) {
    dotted = Dotted(direct);
    return !dotted.empty();
  }
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) return false;
  bool ok = false;
  for (addrinfo* entry = found; entry != nullptr && !ok; entry = entry->ai_next) {
    if (entry->ai_family != AF_INET || entry->ai_addr == nullptr) continue;
    sockaddr_in address{};
    std::memcpy(&address, entry->ai_addr, sizeof address);
    dotted = Dotted(address.sin_addr);
    ok = !dotted.empty();
  }
  freeaddrinfo(found);
  return ok;
}

bool InterfaceIPv4Address(const std::string& name, std::string& dotted) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return false;
  bool ok = false;
  for (ifaddrs* entry = list; entry != nullptr && !ok; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    if (name != entry->ifa_name) continue;
    sockaddr_in address{};
    std::memcpy(&address, entry->ifa_addr, sizeof address);
    dotted = Dotted(address.sin_addr);
    ok = !dotted.empty();
  }
  freeifaddrs(list);
  return ok;
}

}  // namespace platform
