#include "web/WebPage.h"

#include <cstdlib>

#include "frame/KVTException.h"

std::string DecodeFormValue(const std::string& encoded) {
  std::string decoded;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    const char c = encoded[i];
    if (c == '%') {
      // Up to two hex characters; a missing one ends the number early.
      const std::string digits = encoded.substr(i + 1, 2);
      decoded += static_cast<char>(std::strtol(digits.c_str(), nullptr, 16));
      i += digits.size();
    } else if (c == '+') {
      decoded += ' ';
    } else {
      decoded += c;
    }
  }
  return decoded;
}

std::string CKVTHttpRequest::AttributeGetValue(const std::string& name) const {
  return Guarded("CKVTHttpRequest::AttributeGetValue()", [&] {
    auto found = Attributes.find(name);
    return found == Attributes.end() ? std::string() : found->second;
  });
}

std::string CKVTHttpRequest::FormGetValue(const std::string& name) const {
  return Guarded("CKVTHttpRequest::FormGetValue()", [&] {
    auto found = Form.find(name);
    return found == Form.end() ? std::string() : DecodeFormValue(found->second);
  });
}

void CKVTHttpResponse::SetBody(const std::string& text) {
  Guarded("CKVTHttpResponse::SetBody(string)", [&] { Body.assign(text.begin(), text.end()); });
}

void CKVTHttpResponse::SetBody(const char* bytes, DWORD size) {
  Guarded("CKVTHttpResponse::SetBody(char*)", [&] { Body.assign(bytes, bytes + size); });
}

void CKVTHttpResponse::HeaderSetValue(const std::string& name, const std::string& value) {
  Guarded("CKVTHttpResponse::HeaderSetValue()", [&] { Headers[name] = value; });
}
