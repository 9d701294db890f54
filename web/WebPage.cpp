#include "web/WebPage.h"

#include <cctype>
#include <cstdlib>

#include "frame/KVTException.h"
#include "web/HTMLText.h"

std::string FormTokenField(const CKVTHttpRequest& request) {
  return std::string("<INPUT type='hidden' name='") + CKVTHttpRequest::kFormTokenField + "' value='" +
         HtmlAttribute(request.FormToken) + "'>";
}

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

bool HasParentComponent(const std::string& path) {
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find_first_of("/\\", start);
    if (end == std::string::npos) end = path.size();
    if (path.compare(start, end - start, "..") == 0) return true;
    start = end + 1;
  }
  return false;
}

bool LeavesItsFolder(const std::string& path) {
  if (HasParentComponent(path)) return true;
  if (!path.empty() && (path[0] == '/' || path[0] == '\\')) return true;
  return path.size() >= 2 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':';
}

bool ParsePortID(const std::string& text, DWORD& id) {
  if (text == "-1") {
    id = 0xFFFFFFFF;
    return true;
  }
  if (text.empty() || text.size() > 10) return false;
  unsigned long long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<unsigned long long>(c - '0');
  }
  if (value >= 0xFFFFFFFFULL) return false;
  id = static_cast<DWORD>(value);
  return true;
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
