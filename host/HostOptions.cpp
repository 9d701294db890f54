#include "host/HostOptions.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "frame/platform/ProgramFiles.h"
#include "frame/platform/Sockets.h"

// Where an installed zolhost finds the module, relative to its own folder; the install
// rules set it from the folders they install into.
#ifndef ZOL_INSTALLED_MODULE
#define ZOL_INSTALLED_MODULE "../lib/zolserver/libzolserver.so"
#endif

namespace {

bool ParseComMapping(const std::string& text, HostOptions& options) {
  const auto equals = text.find('=');
  if (equals == std::string::npos || equals == 0 || equals + 1 == text.size()) return false;
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (end != text.c_str() + equals || number < 1 || number > 255) return false;
  options.ComPorts[static_cast<int>(number)] = text.substr(equals + 1);
  return true;
}

}  // namespace

bool ParsePortNumber(const std::string& text, std::uint16_t& port) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  const long number = std::strtol(text.c_str(), nullptr, 10);
  if (number < 1 || number > 65535) return false;
  port = static_cast<std::uint16_t>(number);
  return true;
}

bool ParseAddressAndPort(const std::string& text, std::string& address, std::uint16_t& port) {
  const auto colon = text.rfind(':');
  if (colon == std::string::npos) return false;
  std::uint32_t parsed = 0;
  const std::string host = text.substr(0, colon);
  if (!platform::ParseDottedAddress(host, parsed) || !ParsePortNumber(text.substr(colon + 1), port)) return false;
  address = host;
  return true;
}

bool ParseRaceSpeed(const std::string& text, double& speed) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size() || errno != 0 || !std::isfinite(value) || value <= 0) return false;
  speed = value;
  return true;
}

bool ParseSeed(const std::string& text, std::uint32_t& seed) {
  if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  const unsigned long long value = std::strtoull(text.c_str(), nullptr, 10);
  if (value > 0xFFFFFFFFull) return false;
  seed = static_cast<std::uint32_t>(value);
  return true;
}

std::string HostUsage() {
  return "Usage: zolhost [options]\n"
         "Loads the ZOL Server module, hands it the application directory and carries its\n"
         "messages and timer until SIGINT or SIGTERM.\n"
         "\n"
         "Options:\n"
         "  --appdir DIR       application directory; the module reads DIR/Config/ZOLServer.ini\n"
         "                     and finds its sites under DIR (default: the current directory)\n"
         "  --module PATH      the module library (default: libzolserver.so beside zolhost,\n"
         "                     else " ZOL_INSTALLED_MODULE " from zolhost's folder)\n"
         "  --language FILE    texts of the language in use, one key=text per line\n"
         "  --com N=DEVICE     serial port number N is the device DEVICE (repeatable;\n"
         "                     without a mapping COM N is /dev/ttyS<N-1>)\n"
         "  --code-page NAME   code page of text from the data manager (default CP1252); the\n"
         "                     stand-in of --race writes in it too (UTF-8 keeps every letter)\n"
         "  --race FILE        run a stand-in data manager that plays the race described in\n"
         "                     FILE (JSON, see examples/race.json)\n"
         "  --race-speed X     the stand-in's race clock runs X times faster than real time\n"
         "                     (a number above 0; default 1)\n"
         "  --seed N           seeds the stand-in's race: the same seed and file play the same\n"
         "                     meeting (0 to 4294967295; default 1)\n"
         "  --race-loop        the stand-in starts the meeting again after its last run\n"
         "  --data-manager-port PORT\n"
         "                     listen on 127.0.0.1:PORT for a data manager in another process\n"
         "                     (e.g. zoldatamanager); one at a time\n"
         "  --data-manager-listen ADDR:PORT\n"
         "                     the same on another IPv4 address (0.0.0.0: every address)\n"
         "  --web ADDR:PORT    serve the administration pages over HTTP on this IPv4 address\n"
         "                     and port (default 127.0.0.1:8080), at\n"
         "                     http://ADDR:PORT/zol/_server/index.html; without --web a\n"
         "                     port that is taken is logged and zolhost goes on without them\n"
         "  --no-web           no web server\n"
         "  --web-password-file FILE\n"
         "                     HTTP basic authentication with the one line user:password of\n"
         "                     FILE; needed for any address but loopback (127.x.x.x)\n"
         "  --web-cert FILE    serve the pages over HTTPS with the certificate in FILE (PEM);\n"
         "                     needs --web-key\n"
         "  --web-key FILE     the private key of --web-cert (PEM, not encrypted)\n"
         "                     The web server refuses forms sent from another site or without\n"
         "                     its token (403), request bodies over 1 MB (413), request\n"
         "                     headers over 64 KB (431) and paths with \"..\" (400); it closes\n"
         "                     connections idle for 5 s and takes at most 64 at once from one\n"
         "                     address.\n"
         "  --verbose          log every message in and out with ID, class and payload size\n"
         "  --help             show this text\n";
}

std::optional<HostOptions> ParseHostOptions(const std::vector<std::string>& arguments, std::string& error) {
  HostOptions options;
  // Beside the program in the build tree; in a library folder of its own once installed.
  options.ModulePath = platform::FindProgramFile({"libzolserver.so", ZOL_INSTALLED_MODULE});
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    auto value = [&](std::string& target) {
      if (i + 1 >= arguments.size()) {
        error = "option " + argument + " needs a value";
        return false;
      }
      target = arguments[++i];
      return true;
    };
    if (argument == "--help" || argument == "-h") {
      options.Help = true;
    } else if (argument == "--verbose" || argument == "-v") {
      options.Verbose = true;
    } else if (argument == "--appdir") {
      if (!value(options.ApplicationDirectory)) return std::nullopt;
    } else if (argument == "--module") {
      if (!value(options.ModulePath)) return std::nullopt;
    } else if (argument == "--language") {
      if (!value(options.LanguageFile)) return std::nullopt;
    } else if (argument == "--race") {
      if (!value(options.RaceFile)) return std::nullopt;
    } else if (argument == "--race-speed") {
      std::string text;
      if (!value(text)) return std::nullopt;
      if (!ParseRaceSpeed(text, options.Race.Speed)) {
        error = "bad --race-speed '" + text + "': expected a number above 0";
        return std::nullopt;
      }
    } else if (argument == "--seed") {
      std::string text;
      if (!value(text)) return std::nullopt;
      if (!ParseSeed(text, options.Race.Seed)) {
        error = "bad --seed '" + text + "': expected a whole number from 0 to 4294967295";
        return std::nullopt;
      }
    } else if (argument == "--race-loop") {
      options.Race.Loop = true;
    } else if (argument == "--data-manager-port") {
      std::string text;
      if (!value(text)) return std::nullopt;
      if (!ParsePortNumber(text, options.DataManagerPort)) {
        error = "bad --data-manager-port '" + text + "': expected a port from 1 to 65535";
        return std::nullopt;
      }
      options.DataManagerAddress = "127.0.0.1";
    } else if (argument == "--data-manager-listen") {
      std::string text;
      if (!value(text)) return std::nullopt;
      if (!ParseAddressAndPort(text, options.DataManagerAddress, options.DataManagerPort)) {
        error = "bad --data-manager-listen '" + text + "': expected ADDR:PORT, an IPv4 address and a port from 1 to 65535";
        return std::nullopt;
      }
    } else if (argument == "--web") {
      std::string text;
      if (!value(text)) return std::nullopt;
      if (!ParseAddressAndPort(text, options.WebAddress, options.WebPort)) {
        error = "bad --web '" + text + "': expected ADDR:PORT, an IPv4 address and a port from 1 to 65535";
        return std::nullopt;
      }
      options.WebGiven = true;
    } else if (argument == "--no-web") {
      options.WebEnabled = false;
    } else if (argument == "--web-password-file") {
      if (!value(options.WebPasswordFile)) return std::nullopt;
    } else if (argument == "--web-cert") {
      if (!value(options.WebCertificateFile)) return std::nullopt;
    } else if (argument == "--web-key") {
      if (!value(options.WebKeyFile)) return std::nullopt;
    } else if (argument == "--code-page") {
      if (!value(options.CodePage)) return std::nullopt;
    } else if (argument == "--com") {
      std::string mapping;
      if (!value(mapping)) return std::nullopt;
      if (!ParseComMapping(mapping, options)) {
        error = "bad --com mapping '" + mapping + "': expected N=DEVICE with N from 1 to 255";
        return std::nullopt;
      }
    } else {
      error = "unknown option '" + argument + "' (see --help)";
      return std::nullopt;
    }
  }
  if (options.WebCertificateFile.empty() != options.WebKeyFile.empty()) {
    error = options.WebKeyFile.empty() ? "--web-cert needs --web-key (the certificate's private key)"
                                       : "--web-key needs --web-cert (the certificate of the key)";
    return std::nullopt;
  }
  std::uint32_t webAddress = 0;
  if (options.WebEnabled && options.WebPasswordFile.empty() &&
      (!platform::ParseDottedAddress(options.WebAddress, webAddress) || !platform::IsLoopbackAddress(webAddress))) {
    error = "--web " + options.WebAddress + ":" + std::to_string(options.WebPort) +
            " is not a loopback address: give --web-password-file too, so that the pages are not open to the network";
    return std::nullopt;
  }
  return options;
}
