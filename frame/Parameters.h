// A table of named string settings in byte-wise name order; it also travels in a
// CTTBuffer as a count and name/value string pairs.
#pragma once

#include <map>
#include <string>

#include "frame/Types.h"

class CTTBuffer;

class CParameters {
 public:
  CParameters() = default;
  CParameters(const CParameters&) = default;
  CParameters& operator=(const CParameters&) = default;
  virtual ~CParameters() = default;

  // Reads the wire form and merges it in: names present get the new value, the rest stay.
  void BufferToParameters(CTTBuffer& buffer);
  void ParametersToBuffer(CTTBuffer& buffer) const;

  void Add(const std::string& name, const std::string& value);
  void Add(const std::string& name, const char* value) { Add(name, std::string(value)); }
  // Numbers are stored as decimal text; an int is sign-extended, a DWORD zero-extended.
  void Add(const std::string& name, int value);
  void Add(const std::string& name, DWORD value);
  void Add(const std::string& name, INT64 value);

  // The value, or an empty string when there is no such entry.
  std::string GetString(const std::string& name) const;
  bool operator==(const CParameters& other) const;
  // TRUE if an entry with exactly this name and value exists.
  BOOL FindParameter(const std::string& name, const std::string& value) const;

  const std::map<std::string, std::string>& GetEntries() const { return Entries; }
  std::size_t GetCount() const { return Entries.size(); }
  void Clear() { Entries.clear(); }

 private:
  std::map<std::string, std::string> Entries;
};
