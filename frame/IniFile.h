// The sectioned settings file: "[section]" headers and "key=value" items, read strictly
// (no comments, no trimming, no quoting); what it does not understand it skips.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "frame/Types.h"

struct CIniItem {
  std::string Key;
  std::string Value;
};

class CIniFile {
 public:
  explicit CIniFile(std::string filename);
  CIniFile(const CIniFile&) = delete;
  CIniFile& operator=(const CIniFile&) = delete;
  ~CIniFile();

  void Load();
  void Save();
  void Clear();
  CIniItem* FindItem(const std::string& section, const std::string& key);

  void Read(const std::string& section, const std::string& key, std::string& value, const std::string& fallback);
  void Read(const std::string& section, const std::string& key, int& value, int fallback);
  void Read(const std::string& section, const std::string& key, DWORD& value, DWORD fallback);
  void Write(const std::string& section, const std::string& key, const std::string& value);
  void Write(const std::string& section, const std::string& key, DWORD value);
  void Write(const std::string& section, const std::string& key, int value);

  int IsModified() const { return Modified; }
  const std::string& GetFilename() const { return Filename; }

 private:
  void TakeLine(std::string& section, const std::string& line);

  std::string Filename;
  int Modified = 0;
  // Several items per section, in order of insertion; sections sorted by byte value.
  std::multimap<std::string, std::unique_ptr<CIniItem>> Items;
};
