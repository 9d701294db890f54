#include "frame/IniFile.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "frame/KVTException.h"
#include "frame/platform/Paths.h"

CIniFile::CIniFile(std::string filename) : Filename(std::move(filename)) {}

CIniFile::~CIniFile() {
  // A destructor must not throw; a failed save is as silent as the file format.
  try {
    Save();
  } catch (CKVTException* e) {
    delete e;
  }
  Items.clear();
}

void CIniFile::Clear() {
  Guarded("CIniFile::Clear()", [&] { Items.clear(); });
}

void CIniFile::TakeLine(std::string& section, const std::string& line) {
  if (!line.empty() && line[0] == '[') {
    // First and last character dropped; the closing bracket is not looked for.
    section = line.size() >= 2 ? line.substr(1, line.size() - 2) : std::string();
    return;
  }
  const auto equals = line.find('=');
  if (equals == std::string::npos) return;
  auto item = std::make_unique<CIniItem>();
  item->Key = line.substr(0, equals);
  item->Value = line.substr(equals + 1);
  Items.emplace(section, std::move(item));
}

void CIniFile::Load() {
  Guarded("CIniFile::Load()", [&] {
    std::ifstream file(platform::ToNativePath(Filename), std::ios::binary);
    if (!file) return;
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    Clear();
    std::string section;
    std::string line;
    for (char c : bytes) {
      if (c == '\r') continue;
      if (c == '\n') {
        TakeLine(section, line);
        line.clear();
      } else {
        line += c;
      }
    }
    // A last line without a line feed is not read.
  });
}

void CIniFile::Save() {
  Guarded("CIniFile::Save()", [&] {
    if (Modified == 0) return;
    std::ofstream file(platform::ToNativePath(Filename), std::ios::binary | std::ios::trunc);
    const std::string* written = nullptr;
    bool namedWritten = false;
    for (const auto& [section, item] : Items) {
      if (written == nullptr ? !section.empty() : section != *written) {
        file << (namedWritten ? "\r\n" : "") << '[' << section << "]\r\n";
        namedWritten = true;
      }
      written = &section;
      file << item->Key << '=' << item->Value << "\r\n";
    }
    Modified = 0;
  });
}

CIniItem* CIniFile::FindItem(const std::string& section, const std::string& key) {
  return Guarded("CIniFile::FindItem()", [&]() -> CIniItem* {
    auto [first, last] = Items.equal_range(section);
    for (auto it = first; it != last; ++it) {
      if (it->second->Key == key) return it->second.get();
    }
    return nullptr;
  });
}

void CIniFile::Read(const std::string& section, const std::string& key, std::string& value,
                    const std::string& fallback) {
  Guarded("CIniFile::Read(string)", [&] {
    const CIniItem* item = FindItem(section, key);
    value = item != nullptr ? item->Value : fallback;
  });
}

void CIniFile::Read(const std::string& section, const std::string& key, int& value, int fallback) {
  Guarded("CIniFile::Read(DWORD)", [&] {
    const CIniItem* item = FindItem(section, key);
    value = item != nullptr ? static_cast<int>(std::atol(item->Value.c_str())) : fallback;
  });
}

void CIniFile::Read(const std::string& section, const std::string& key, DWORD& value, DWORD fallback) {
  Guarded("CIniFile::Read(DWORD)", [&] {
    const CIniItem* item = FindItem(section, key);
    value = item != nullptr ? static_cast<DWORD>(std::atol(item->Value.c_str())) : fallback;
  });
}

void CIniFile::Write(const std::string& section, const std::string& key, const std::string& value) {
  Guarded("CIniFile::Write(string)", [&] {
    CIniItem* item = FindItem(section, key);
    if (item == nullptr) {
      auto fresh = std::make_unique<CIniItem>();
      item = fresh.get();
      Items.emplace(section, std::move(fresh));
    }
    item->Key = key;
    item->Value = value;
    Modified = 1;
  });
}

void CIniFile::Write(const std::string& section, const std::string& key, DWORD value) {
  Guarded("CIniFile::Write(DWORD)", [&] { Write(section, key, std::to_string(value)); });
}

void CIniFile::Write(const std::string& section, const std::string& key, int value) {
  Guarded("CIniFile::Write(DWORD)", [&] { Write(section, key, std::to_string(static_cast<long>(value))); });
}
