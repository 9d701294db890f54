// The command line of zolhost.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/RacePlayOptions.h"

struct HostOptions {
  std::string ModulePath;
  std::string ApplicationDirectory = ".";
  std::string LanguageFile;
  std::string RaceFile;
  RacePlayOptions Race;
  std::string CodePage = "CP1252";
  std::map<int, std::string> ComPorts;
  bool Verbose = false;
  bool Help = false;
};

// Parses argv; on bad input returns nothing and sets `error` to a one-line reason.
std::optional<HostOptions> ParseHostOptions(const std::vector<std::string>& arguments, std::string& error);

std::string HostUsage();
