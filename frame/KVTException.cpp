#include "frame/KVTException.h"

std::string CKVTException::Describe() const {
  std::string text;
  for (const std::string& name : Trail) {
    if (!text.empty()) text += " <- ";
    text += name;
  }
  return text;
}

std::string CKVTException::DescribeWithReason() const {
  return Reason.empty() ? Describe() : Describe() + ": " + Reason;
}

void ThrowKVT(const char* name) { throw new CKVTException(name); }

void ThrowKVT(const char* name, const char* reason) {
  throw new CKVTException(name, reason == nullptr ? std::string() : std::string(reason));
}
