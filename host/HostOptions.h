// The command line of zolhost.
#pragma once

#include <cstdint>
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
  // The data manager link: listen on this address and port for a data manager in another
  // process (port 0: no link).
  std::string DataManagerAddress = "127.0.0.1";
  std::uint16_t DataManagerPort = 0;
  // The web server of the administration pages: on unless WebEnabled is false; WebGiven
  // when --web named the address (a port taken is then an error, not a note).
  bool WebEnabled = true;
  bool WebGiven = false;
  std::string WebAddress = "127.0.0.1";
  std::uint16_t WebPort = 8080;
  // One line user:password; turns on basic authentication.
  std::string WebPasswordFile;
  // A certificate and its private key (PEM): the pages are served over HTTPS.
  std::string WebCertificateFile;
  std::string WebKeyFile;
  bool Verbose = false;
  bool Help = false;
};

// Parses argv; on bad input returns nothing and sets `error` to a one-line reason.
std::optional<HostOptions> ParseHostOptions(const std::vector<std::string>& arguments, std::string& error);

std::string HostUsage();

// The shared readers of option values (zolhost and zoldatamanager); false on bad text.
// A TCP port from 1 to 65535.
bool ParsePortNumber(const std::string& text, std::uint16_t& port);
// ADDR:PORT with a dotted IPv4 address.
bool ParseAddressAndPort(const std::string& text, std::string& address, std::uint16_t& port);
// A finite number above 0.
bool ParseRaceSpeed(const std::string& text, double& speed);
// A whole number from 0 to 4294967295.
bool ParseSeed(const std::string& text, std::uint32_t& seed);
