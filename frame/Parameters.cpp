#include "frame/Parameters.h"

#include <cinttypes>
#include <cstdio>

#include "frame/KVTException.h"
#include "frame/TTBuffer.h"

void CParameters::BufferToParameters(CTTBuffer& buffer) {
  Guarded("CParameters::BufferToParameters()", [&] {
    int count = 0;
    buffer >> count;
    for (int i = 0; i < count; ++i) {
      std::string name;
      std::string value;
      buffer >> name >> value;
      Entries[name] = value;
    }
  });
}

void CParameters::ParametersToBuffer(CTTBuffer& buffer) const {
  Guarded("CParameters::ParametersToBuffer()", [&] {
    buffer << static_cast<int>(Entries.size());
    for (const auto& [name, value] : Entries) buffer << name << value;
  });
}

void CParameters::Add(const std::string& name, const std::string& value) {
  Guarded("CParameters::Add(string, string)", [&] { Entries[name] = value; });
}

void CParameters::Add(const std::string& name, int value) { Add(name, static_cast<INT64>(value)); }

void CParameters::Add(const std::string& name, DWORD value) { Add(name, static_cast<INT64>(value)); }

void CParameters::Add(const std::string& name, INT64 value) {
  Guarded("CParameters::Add(string, INT64)", [&] {
    char text[32];
    std::snprintf(text, sizeof text, "%" PRId64, value);
    Add(name, std::string(text));
  });
}

std::string CParameters::GetString(const std::string& name) const {
  return Guarded("CParameters::GetString()", [&] {
    auto found = Entries.find(name);
    return found != Entries.end() ? found->second : std::string();
  });
}

bool CParameters::operator==(const CParameters& other) const {
  return Guarded("CParameters::operator==", [&] {
    if (Entries.size() != other.Entries.size()) return false;
    for (const auto& [name, value] : Entries) {
      if (!other.FindParameter(name, value)) return false;
    }
    return true;
  });
}

BOOL CParameters::FindParameter(const std::string& name, const std::string& value) const {
  return Guarded("CParameters::FindParameter", [&]() -> BOOL {
    // A walk over all entries, as the table is small; both name and value must match.
    for (const auto& [entryName, entryValue] : Entries) {
      if (entryName == name && entryValue == value) return TRUE;
    }
    return FALSE;
  });
}
