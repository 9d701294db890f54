#include "frame/KVTException.h"

std::string CKVTException::Describe() const {
  std::string text;
  for (const std::string& name : Trail) {
    if (!text.empty()) text += " <- ";
    text += name;
  }
  return text;
}

void ThrowKVT(const char* name) { throw new CKVTException(name); }
