// A broker address as zolclient takes it: mqtt://HOST[:PORT]/PREFIX to publish under
// PREFIX, mqtt://HOST[:PORT]/PREFIX/SITE to read one site; mqtts:// for TLS.
#pragma once

#include <cstdint>
#include <string>

#include "frame/Types.h"

namespace zolclient {

inline constexpr std::uint16_t kMqttPort = 1883;
inline constexpr std::uint16_t kMqttTlsPort = 8883;

struct MqttAddress {
  bool Tls = false;
  std::string Host;
  std::uint16_t Port = 0;
  std::string Prefix;  // topic levels joined by '/', none empty, no wildcard
  DWORD Site = 0;      // reading only
};

enum class MqttAddressUse { Publish, Read };

// Parses `text`; on failure `error` is one line that names the address.
bool ParseMqttAddress(const std::string& text, MqttAddressUse use, MqttAddress& address, std::string& error);

// True when `text` starts as a broker address does.
bool IsMqttAddress(const std::string& text);

}  // namespace zolclient
