// The host's package: where the application lives, this computer's address, the texts
// in the language in use, and the device behind each serial port number.
//
// The module never creates one; the host hands it over through SetPackage, and the
// module reads it through GetPackage().
#pragma once

#include <cstdarg>
#include <map>
#include <string>

#include "frame/Types.h"

class CPackage {
 public:
  CPackage();
  virtual ~CPackage() = default;

  // Text by key: the language in use, then the built-in text, then the key itself.
  std::string GetTranslation(const char* key, ...) const;
  std::string GetTranslationArgs(const char* key, va_list args) const;

  // The device of a serial port number: the host's mapping, else /dev/ttyS<n-1>.
  std::string ComPortDevice(int comNumber) const;

  // Reads "key=text" lines into Translations; false when the file cannot be read.
  bool LoadLanguageFile(const std::string& path);

  // The host's log. Called from the module thread and from port threads alike; the
  // default writes one time-stamped line to standard error.
  virtual void WriteLog(const std::string& line) const;

  std::string ApplicationDirectory;
  DWORD LocalAddress = 0;  // IPv4, network byte order
  std::map<std::string, std::string> Translations;
  std::map<std::string, std::string> DefaultTexts;
  std::map<int, std::string> ComPorts;
  // Code page of text that comes from the views; converted to UTF-8 on the way in.
  std::string CodePage = "CP1252";
};

// The built-in texts of the keys this module uses.
const std::map<std::string, std::string>& BuiltInTexts();

CPackage* GetPackage();
void SetModulePackage(CPackage* package);

// Writes a line to the host's log through the module's package (standard error without one).
void ModuleLog(const std::string& line);

// GetTranslation through the module's package; the built-in texts when there is none yet.
std::string GetTranslation(const char* key, ...);
