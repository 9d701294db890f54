#include "host/WebAccess.h"

#include <cctype>
#include <cstdint>

#include "web/WebPage.h"

namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// Decodes base64; false on a character outside the alphabet or a wrong length.
bool DecodeBase64(const std::string& text, std::string& decoded) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  if (text.empty() || text.size() % 4 != 0) return false;
  decoded.clear();
  std::uint32_t buffer = 0;
  int bits = 0;
  std::size_t padding = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '=') {
      // Padding only at the end, at most two.
      if (i + 2 < text.size()) return false;
      ++padding;
      continue;
    }
    if (padding > 0) return false;
    const auto value = alphabet.find(c);
    if (value == std::string::npos) return false;
    buffer = (buffer << 6) | static_cast<std::uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      decoded += static_cast<char>((buffer >> bits) & 0xFF);
    }
  }
  return true;
}

}  // namespace

bool CWebAccess::ParseCredentials(const std::string& fileText, WebCredentials& credentials, std::string& error) {
  std::string line = fileText.substr(0, fileText.find('\n'));
  if (!line.empty() && line.back() == '\r') line.pop_back();
  const auto colon = line.find(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == line.size()) {
    error = "expected one line user:password";
    return false;
  }
  credentials.User = line.substr(0, colon);
  credentials.Password = line.substr(colon + 1);
  return true;
}

bool CWebAccess::EqualInConstantTime(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    difference |= static_cast<unsigned>(static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]));
  }
  return difference == 0;
}

bool CWebAccess::Authorized(const std::string& authorization, const WebCredentials& credentials) {
  const std::string scheme = "basic ";
  if (authorization.size() <= scheme.size() || Lower(authorization.substr(0, scheme.size())) != scheme) return false;
  std::string given = authorization.substr(scheme.size());
  while (!given.empty() && given.front() == ' ') given.erase(0, 1);
  while (!given.empty() && given.back() == ' ') given.pop_back();
  std::string decoded;
  if (!DecodeBase64(given, decoded)) return false;
  return EqualInConstantTime(decoded, credentials.User + ":" + credentials.Password);
}

std::string CWebAccess::OriginOf(const std::string& url) {
  const auto schemeEnd = url.find("://");
  if (schemeEnd == std::string::npos || schemeEnd == 0) return std::string();
  const auto authorityEnd = url.find_first_of("/?#", schemeEnd + 3);
  const std::string authority = url.substr(schemeEnd + 3, authorityEnd == std::string::npos ? std::string::npos
                                                                                             : authorityEnd - schemeEnd - 3);
  if (authority.empty() || authority.find('@') != std::string::npos) return std::string();
  return Lower(url.substr(0, schemeEnd)) + "://" + Lower(authority);
}

bool CWebAccess::SameOrigin(const std::string& origin, const std::string& referer, const std::string& host,
                            const std::string& scheme) {
  const std::string own = Lower(scheme) + "://" + Lower(host);
  if (!origin.empty()) return Lower(origin) == own;
  if (!referer.empty()) return OriginOf(referer) == own;
  return true;
}

bool CWebAccess::LoopbackHost(const std::string& host) {
  std::string name = Lower(host);
  if (name.rfind("[::1]", 0) == 0) return name.size() == 5 || name[5] == ':';
  const auto colon = name.find(':');
  if (colon != std::string::npos) name = name.substr(0, colon);
  if (name == "localhost") return true;
  // 127.a.b.c, each part digits.
  if (name.rfind("127.", 0) != 0) return false;
  int dots = 0;
  for (char c : name) {
    if (c == '.') {
      ++dots;
    } else if (c < '0' || c > '9') {
      return false;
    }
  }
  return dots == 3 && name.back() != '.' && name.find("..") == std::string::npos;
}

bool CWebAccess::UnsafePath(const std::string& path) {
  for (char c : path) {
    if (static_cast<unsigned char>(c) < 0x20) return true;
  }
  return HasParentComponent(path);
}

std::string CWebAccess::Decode(const std::string& text, bool plusIsBlank) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '%' && i + 2 < text.size() && HexValue(text[i + 1]) >= 0 && HexValue(text[i + 2]) >= 0) {
      decoded += static_cast<char>(HexValue(text[i + 1]) * 16 + HexValue(text[i + 2]));
      i += 2;
    } else if (c == '+' && plusIsBlank) {
      decoded += ' ';
    } else {
      decoded += c;
    }
  }
  return decoded;
}

std::map<std::string, std::string> CWebAccess::ParsePairs(const std::string& text, bool decodeValues) {
  std::map<std::string, std::string> pairs;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find('&', start);
    if (end == std::string::npos) end = text.size();
    const std::string pair = text.substr(start, end - start);
    const auto equals = pair.find('=');
    const std::string name = Decode(pair.substr(0, equals), true);
    const std::string value = equals == std::string::npos ? std::string() : pair.substr(equals + 1);
    if (!name.empty()) pairs[name] = decodeValues ? Decode(value, true) : value;
    start = end + 1;
  }
  return pairs;
}
