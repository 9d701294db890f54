#include "client/MqttAddress.h"

#include <vector>

#include "frame/KVTException.h"

namespace zolclient {

namespace {

bool AllDigits(const std::string& text) {
  if (text.empty() || text.size() > 9) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

// A host name or dotted address: letters, digits, '-', '.' and '_'.
bool GoodHost(const std::string& host) {
  if (host.empty() || host.size() > 253) return false;
  for (char c : host) {
    const bool good = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                      c == '.' || c == '_';
    if (!good) return false;
  }
  return true;
}

std::vector<std::string> Levels(const std::string& path) {
  std::vector<std::string> levels;
  std::string current;
  for (char c : path) {
    if (c == '/') {
      levels.push_back(current);
      current.clear();
    } else {
      current += c;
    }
  }
  levels.push_back(current);
  return levels;
}

bool GoodLevel(const std::string& level) {
  if (level.empty()) return false;
  for (char c : level) {
    if (c == '+' || c == '#' || c == '\0' || static_cast<unsigned char>(c) < 0x20) return false;
  }
  return true;
}

}  // namespace

bool IsMqttAddress(const std::string& text) { return text.rfind("mqtt://", 0) == 0 || text.rfind("mqtts://", 0) == 0; }

bool ParseMqttAddress(const std::string& text, MqttAddressUse use, MqttAddress& address, std::string& error) {
  return Guarded("ParseMqttAddress()", [&] {
    const std::string expected = use == MqttAddressUse::Publish ? "mqtt[s]://HOST[:PORT]/PREFIX"
                                                                  : "mqtt[s]://HOST[:PORT]/PREFIX/SITE";
    const auto fail = [&](const std::string& why) {
      error = "bad broker address '" + text + "': " + why + " (expected " + expected + ")";
      return false;
    };
    MqttAddress parsed;
    std::string rest;
    if (text.rfind("mqtt://", 0) == 0) {
      rest = text.substr(7);
    } else if (text.rfind("mqtts://", 0) == 0) {
      parsed.Tls = true;
      rest = text.substr(8);
    } else {
      return fail("it must start with mqtt:// or mqtts://");
    }
    const std::size_t slash = rest.find('/');
    const std::string authority = rest.substr(0, slash);
    const std::string path = slash == std::string::npos ? std::string() : rest.substr(slash + 1);
    const std::size_t colon = authority.find(':');
    parsed.Host = authority.substr(0, colon);
    if (parsed.Host.empty()) return fail("no host");
    if (!GoodHost(parsed.Host)) return fail("bad host");
    parsed.Port = parsed.Tls ? kMqttTlsPort : kMqttPort;
    if (colon != std::string::npos) {
      const std::string port = authority.substr(colon + 1);
      if (!AllDigits(port) || std::stoul(port) == 0 || std::stoul(port) > 65535) {
        return fail("the port must be a number from 1 to 65535");
      }
      parsed.Port = static_cast<std::uint16_t>(std::stoul(port));
    }
    if (path.empty()) return fail(use == MqttAddressUse::Publish ? "no prefix" : "no prefix and site");
    std::vector<std::string> levels = Levels(path);
    for (const std::string& level : levels) {
      if (!GoodLevel(level)) return fail("an empty topic level or one with a wildcard or control character");
    }
    if (use == MqttAddressUse::Read) {
      if (levels.size() < 2) return fail("no site after the prefix");
      if (!AllDigits(levels.back()) || std::stoul(levels.back()) > 7) return fail("the site must be a number from 0 to 7");
      parsed.Site = static_cast<DWORD>(std::stoul(levels.back()));
      levels.pop_back();
    }
    for (const std::string& level : levels) {
      if (!parsed.Prefix.empty()) parsed.Prefix += '/';
      parsed.Prefix += level;
    }
    address = parsed;
    return true;
  });
}

}  // namespace zolclient
